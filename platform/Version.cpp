#include "nvk/platform/Version.h"

namespace tovan {
const char* libraryVersion() { return "0.1.0"; }
}
