// Is this thread in the code of a service?
#pragma once

namespace NS_BUNDLEMGR1 {

/// While it lives, the calling thread is in the code of a service. Other threads may be waiting
/// for it to come back, so it must not wait for them.
class InService {
public:
    InService() { ++Depth(); }
    ~InService() { --Depth(); }
    InService(const InService&) = delete;
    InService& operator=(const InService&) = delete;

    static bool IsActive() { return Depth() > 0; }

private:
    static unsigned& Depth() {
        static thread_local unsigned t_depth = 0;
        return t_depth;
    }
};

}  // namespace NS_BUNDLEMGR1
