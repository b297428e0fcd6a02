#include "platform/umask.h"

#include <type_traits>

namespace NS_BUNDLEMGR1 {

namespace {

// Constant-initialised and with nothing to destroy, so that it serves static
// constructors and destructors as well.
#ifdef __clang__
[[clang::require_constant_initialization]]
#else
__constinit
#endif
std::recursive_mutex g_umaskMutex;
static_assert(std::is_trivially_destructible_v<std::recursive_mutex>);

}  // namespace

ScopedUmask::ScopedUmask(mode_t mask) : m_lock(g_umaskMutex), m_oldMask(umask(mask)) {}

ScopedUmask::~ScopedUmask() {
    umask(m_oldMask);
}

}  // namespace NS_BUNDLEMGR1
