#include "src/platform/iconv/gbk.h"

namespace NS_BUNDLEMGR1 {

#include "src/platform/iconv/gbktable.inc"

}  // namespace NS_BUNDLEMGR1
