#pragma once
#include "nvk/platform/Export.h"

namespace tovan {
/// "major.minor.patch" of the library.
NVK_EXPORT const char* libraryVersion();
}
