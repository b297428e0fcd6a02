#include "src/platform/serverpath.h"

#ifndef ZO_HAVE_KORUSDK_WRAP

#include <cstdlib>

namespace ns_korusdk_wrap {

void VexGetServerPath(std::string& out, const std::string&, const std::string&) {
    const char* const path = std::getenv("KORU_SERVER_PATH");
    out = path != nullptr ? path : "";
}

}  // namespace ns_korusdk_wrap

#endif
