// GNU libiconv's calls over the C library's iconv.
//
// The two libraries know the same characters but part ways where text is bad: the C
// library reports invalid and unrepresentable input alike, drops whole invalid
// sequences, and gives GBK a Euro sign that GNU's GBK lacks. So everything goes
// character by character through Unicode here: a decoder reads one, an encoder writes
// it, and what either cannot do is replaced in between.
//
// GBK, UTF-8, ISO-8859-1, UTF-16 and UTF-32 have codecs of our own, GBK with a table that
// was made while building. For every other set two of the C library's handles do the
// reading and writing.
#include <cerrno>
#include <new>

#include "src/platform/iconv/conversion.h"
#include "src/platform/iconv/iconv.h"

using namespace NS_BUNDLEMGR1;  // NOLINT(google-build-using-namespace): its own file's definitions

libiconv_t libiconv_open(const char* toCode, const char* fromCode) {
    try {
        std::unique_ptr<Conversion> conversion = Conversion::Open(toCode, fromCode);
        if (conversion != nullptr) return conversion.release();
        errno = EINVAL;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    return NoIconv();
}

std::size_t libiconv(libiconv_t handle, char** in, std::size_t* inLeft, char** out, std::size_t* outLeft) {
    Input input{reinterpret_cast<const unsigned char*>(*in), *inLeft};
    Output output{reinterpret_cast<unsigned char*>(*out), *outLeft};
    std::size_t replaced = 0;
    const int error = static_cast<Conversion*>(handle)->Run(input, output, replaced);
    *in += *inLeft - input.left;
    *inLeft = input.left;
    *out += *outLeft - output.room;
    *outLeft = output.room;
    if (error == 0) return replaced;
    errno = error;
    return static_cast<std::size_t>(-1);
}

int libiconvctl(libiconv_t handle, int, void* argument) {
    static_cast<Conversion*>(handle)->SetFallbacks(*static_cast<const iconv_fallbacks*>(argument));
    return 0;
}

int libiconv_close(libiconv_t handle) {
    delete static_cast<Conversion*>(handle);
    return 0;
}
