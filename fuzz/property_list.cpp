#include "fuzz/target.h"
#include "system/platform/PropertyList.h"

#include <array>
#include <cstdlib>

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr std::array<std::string_view, 3> keys = {"CFBundleName", "a", ""};
    const QByteArray file(reinterpret_cast<const char *>(bytes), qsizetype(size));
    const platform::PropertyList list(file, keys);
    for (const std::string_view key : keys) {
        const QString text = list.text(key);
        // Nothing in a property list makes a text longer than it is written.
        if (text.size() > file.size() || text.contains(QChar::Null)) {
            std::abort();
        }
    }
    return 0;
}
