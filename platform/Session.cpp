#include "nvk/platform/Session.h"

namespace tovan {

iSession::~iSession() = default;
iClientSession::~iClientSession() = default;

}  // namespace tovan
