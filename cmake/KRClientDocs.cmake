# `docs`: HTML from the public headers' comments, when Doxygen is installed.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(DOXYGEN_PROJECT_NAME KRClient)
  set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
  set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
  set(DOXYGEN_GENERATE_LATEX NO)
  set(DOXYGEN_EXTRACT_ALL YES)
  set(DOXYGEN_RECURSIVE YES)
  set(DOXYGEN_EXCLUDE_PATTERNS "*/Internal/*")
  set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/API.md)
  set(DOXYGEN_PREDEFINED "ZRROOT_EXPORT=" "IO_EXPORT=" "ZRXML_EXPORT=" "KRCB_EXPORT=" "KRCLIENT_EXPORT=")
  set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
  set(DOXYGEN_EXCLUDE_SYMBOLS "std::*")
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_FILE_PATTERNS *.h)
  doxygen_add_docs(docs
    ${PROJECT_SOURCE_DIR}/docs/API.md
    ${PROJECT_SOURCE_DIR}/docs/FORMATS.md
    ${PROJECT_SOURCE_DIR}/Sources/Platform/ZRRoot/ZR
    ${PROJECT_SOURCE_DIR}/Sources/Platform/IO/IO
    ${PROJECT_SOURCE_DIR}/Sources/Platform/ZRXML/ZRXML
    ${PROJECT_SOURCE_DIR}/Sources/Platform/KRClientBase/KRCB
    ${PROJECT_SOURCE_DIR}/Sources/Platform/KRClientBase/Kerrow
    ${PROJECT_SOURCE_DIR}/Sources/KRClient
    COMMENT "API documentation in ${PROJECT_BINARY_DIR}/docs/html")
endif()
