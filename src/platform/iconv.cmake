# Chooses GNU libiconv where it is installed, else the stand-in over the C library. A
# libiconv of another make, without GNU's own names, does not count.
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

find_library(LIBICONV_LIBRARY NAMES iconv libiconv)
mark_as_advanced(LIBICONV_LIBRARY)
if(LIBICONV_LIBRARY)
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_LIBRARIES "${LIBICONV_LIBRARY}")
    check_cxx_source_compiles("
        extern \"C\" void* libiconv_open(const char*, const char*);
        extern \"C\" int libiconvctl(void*, int, void*);
        int main() { return libiconvctl(libiconv_open(\"UTF-8\", \"GBK\"), 6, nullptr); }"
        ZO_HAVE_GNU_LIBICONV)
    cmake_pop_check_state()
endif()

if(ZO_HAVE_GNU_LIBICONV)
    target_compile_definitions(zo_bundlemgr_objects PUBLIC ZO_HAVE_GNU_LIBICONV)
    target_link_libraries(zo_bundlemgr_objects PUBLIC "${LIBICONV_LIBRARY}")
else()
    target_sources(zo_bundlemgr_objects PRIVATE platform/iconvstandin.cpp)
endif()
