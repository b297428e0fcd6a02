# What the stand-in is made of, in full paths: for the library, and for who builds it alone.
set(ZO_ICONV_STANDIN_SOURCES
    clibrarycodec.cpp codecs.cpp codesetname.cpp conversion.cpp gbk.cpp iconvstandin.cpp utf16and32.cpp)
list(TRANSFORM ZO_ICONV_STANDIN_SOURCES PREPEND "${CMAKE_CURRENT_LIST_DIR}/")
