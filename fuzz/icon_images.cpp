#include "fuzz/target.h"
#include "system/platform/IconImages.h"

#include <cstdlib>

namespace {

// The readers of images tell of every broken one.
[[maybe_unused]] const auto formerHandler =
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    const QByteArray file(reinterpret_cast<const char *>(bytes), qsizetype(size));
    for (const QImage &image : platform::iconImages(file)) {
        if (image.isNull() || image.width() > 256 || image.height() > 256) {
            std::abort();
        }
    }
    return 0;
}
