#include "fuzz/target.h"
#include "system/platform/PropertyList.h"

#include <cstdlib>

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    const QByteArray file(reinterpret_cast<const char *>(bytes), qsizetype(size));
    const platform::PropertyList list(file);
    for (const char *key : {"CFBundleName", "a", ""}) {
        // Nothing in a property list makes a text longer than it is written.
        if (list.text(QString::fromLatin1(key)).size() > file.size()) {
            std::abort();
        }
    }
    return 0;
}
