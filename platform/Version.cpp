#include "nvk/platform/Version.h"

namespace tovan {
const char* libraryVersion() { return NVK_VERSION; }
}
