// What Poco's class loader makes, next to a service.
#pragma once

namespace lifecycle {

class PocoService {
public:
    virtual ~PocoService() = default;
    virtual int Init() = 0;
};

}  // namespace lifecycle
