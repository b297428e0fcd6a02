// Every code set that the C library knows, read and written one character at a time.
#pragma once

#include "src/platform/iconv/codec.h"

namespace NS_BUNDLEMGR1 {

/// An open iconv handle of the C library.
class CLibraryHandle {
public:
    CLibraryHandle(const char* to, const char* from);
    ~CLibraryHandle();
    CLibraryHandle(const CLibraryHandle&) = delete;
    CLibraryHandle& operator=(const CLibraryHandle&) = delete;

    bool IsOpen() const;

    /// @return 0 or the error number; `inLeft` and `outLeft` go down by what was done
    int Convert(const void* in, std::size_t& inLeft, void* out, std::size_t& outLeft);

private:
    void* m_handle;
};

class CLibraryDecoder final : public Decoder {
public:
    explicit CLibraryDecoder(const char* codeSet);
    bool IsOpen() const { return m_handle.IsOpen(); }
    Decoded Next(const unsigned char* in, std::size_t left) override;

private:
    CLibraryHandle m_handle;
};

class CLibraryEncoder final : public Encoder {
public:
    explicit CLibraryEncoder(const char* codeSet);
    bool IsOpen() const { return m_handle.IsOpen(); }
    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override;

private:
    CLibraryHandle m_handle;
};

}  // namespace NS_BUNDLEMGR1
