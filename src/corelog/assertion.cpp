#include "src/corelog/assertion.h"

#include <cstdlib>

#include <ace/Assert.h>

namespace NS_BUNDLEMGR1 {

void FailAssertion(const char* expression, const char* source, int line) {
    __ace_assert(source, line, expression);
    std::abort();  // for a host that has masked ACE's log, which aborts only what it prints
}

}  // namespace NS_BUNDLEMGR1
