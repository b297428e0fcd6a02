// Services that live at addresses only.
#pragma once

#include <cstdint>
#include <thread>

#include "src/lifetime/servicecall.h"

namespace test {

inline const NS_BUNDLEMGR1::ServiceObjectBase* At(std::uintptr_t address) {
    return reinterpret_cast<const NS_BUNDLEMGR1::ServiceObjectBase*>(address);  // never looked into
}

inline bool MayCall(const NS_BUNDLEMGR1::ServiceObjectBase* service, NS_BUNDLEMGR1::CallPurpose purpose,
                    unsigned long id = 0) {
    return static_cast<bool>(NS_BUNDLEMGR1::ServiceCall(service, id, purpose));
}

inline bool MayCallElsewhere(const NS_BUNDLEMGR1::ServiceObjectBase* service, NS_BUNDLEMGR1::CallPurpose purpose) {
    bool may = false;
    std::thread([&] { may = MayCall(service, purpose); }).join();
    return may;
}

}  // namespace test
