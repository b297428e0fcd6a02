// Log proxies of this library's own make.
#pragma once

#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

/// Marks a proxy that certainly has `VPrintfAt`: one that a host compiled against an older
/// header does not.
class OwnLogProxy : public LogProxy {};

}  // namespace NS_BUNDLEMGR1
