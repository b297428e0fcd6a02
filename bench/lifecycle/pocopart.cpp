// The same as part.cpp, for Poco's class loader.
#include <Poco/ClassLibrary.h>

#include "lifecycle/pocoservice.h"

namespace {

template <int kNumber>
class Part : public lifecycle::PocoService {
public:
    int Init() override { return 0; }
};

using Part0 = Part<0>;
using Part1 = Part<1>;
using Part2 = Part<2>;
using Part3 = Part<3>;

}  // namespace

POCO_BEGIN_MANIFEST(lifecycle::PocoService)
POCO_EXPORT_CLASS(Part0)
POCO_EXPORT_CLASS(Part1)
POCO_EXPORT_CLASS(Part2)
POCO_EXPORT_CLASS(Part3)
POCO_END_MANIFEST
