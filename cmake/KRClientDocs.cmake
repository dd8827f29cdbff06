# `docs`: HTML from the public headers' comments and the guides in docs/, when
# Doxygen is installed. The guides are installed with the library
# (share/doc/KRClient), and the HTML too once it was built.
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
  set(DOXYGEN_PREDEFINED "ZRROOT_EXPORT=" "IO_EXPORT=" "ZRXML_EXPORT=" "JSON_EXPORT=" "KRCB_EXPORT="
                         "KRCLIENT_EXPORT=" "KRC_EMULATOR_EXPORT=")
  set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
  set(DOXYGEN_EXCLUDE_SYMBOLS "std::*")
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_FILE_PATTERNS *.h *.md *.dox)
  # Classes by subsystem: the groups of docs/groups.dox.
  set(DOXYGEN_SHOW_GROUPED_MEMB_INC YES)
  doxygen_add_docs(docs
    ${PROJECT_SOURCE_DIR}/docs/API.md
    ${PROJECT_SOURCE_DIR}/docs/ARCHITECTURE.md
    ${PROJECT_SOURCE_DIR}/docs/FIRST_HOST.md
    ${PROJECT_SOURCE_DIR}/docs/EMULATOR.md
    ${PROJECT_SOURCE_DIR}/docs/LOGIN_DATA.md
    ${PROJECT_SOURCE_DIR}/docs/FORMATS.md
    ${PROJECT_SOURCE_DIR}/docs/groups.dox
    ${PROJECT_SOURCE_DIR}/Sources/Platform/ZRRoot/ZR
    ${PROJECT_SOURCE_DIR}/Sources/Platform/IO/IO
    ${PROJECT_SOURCE_DIR}/Sources/Platform/ZRXML/ZRXML
    ${PROJECT_SOURCE_DIR}/Sources/Platform/JSON/JSON
    ${PROJECT_SOURCE_DIR}/Sources/Platform/KRClientBase/KRCB
    ${PROJECT_SOURCE_DIR}/Sources/Platform/KRClientBase/Kerrow
    ${PROJECT_SOURCE_DIR}/Sources/Platform/Emulator/Emulator
    ${PROJECT_SOURCE_DIR}/Sources/KRClient
    COMMENT "API documentation in ${PROJECT_BINARY_DIR}/docs/html")
endif()
if(KRC_INSTALL)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/API.md ${PROJECT_SOURCE_DIR}/docs/ARCHITECTURE.md
    ${PROJECT_SOURCE_DIR}/docs/FIRST_HOST.md ${PROJECT_SOURCE_DIR}/docs/EMULATOR.md
    ${PROJECT_SOURCE_DIR}/docs/LOGIN_DATA.md ${PROJECT_SOURCE_DIR}/docs/FORMATS.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
endif()
