// From a code set to what reads and what writes it.
#pragma once

#include <memory>

#include "src/platform/iconv/codec.h"
#include "src/platform/iconv/codesetname.h"

namespace NS_BUNDLEMGR1 {

/// @param name what the C library knows the set by, where it is none of ours
/// @return null for an unknown set
std::unique_ptr<Decoder> MakeDecoder(CodeSet codeSet, const char* name);
std::unique_ptr<Encoder> MakeEncoder(CodeSet codeSet, const char* name);

}  // namespace NS_BUNDLEMGR1
