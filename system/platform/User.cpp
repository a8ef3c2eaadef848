#include "system/platform/User.h"

#include "system/platform/PathEncoding.h"
#include "system/platform/files/Volume.h"

namespace platform {

QString userName()
{
    return pathFromBytes(Volume::current().userName());
}

} // namespace platform
