#include "fuzz/target.h"
#include "system/platform/Task.h"

#include <cstdlib>

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(bytes), qsizetype(size));
    const QStringList lines = platform::linesOfText(text);
    qsizetype end = 0;
    for (const QString &line : lines) {
        const bool isThere = QStringView(text).sliced(end, line.size()) == line;
        const bool isOneLine = platform::linesOfText(line) == QStringList(line);
        if (!isThere || !isOneLine) {
            std::abort();
        }
        end += line.size() + 1;
    }
    // Nothing but one newline character between two lines is left out.
    if (end != text.size() + 1) {
        std::abort();
    }
    return 0;
}
