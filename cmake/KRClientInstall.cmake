# Install rules: the library, its public headers (never an Internal folder),
# krctl, the CMake package and a pkg-config file; the emulator component's own
# rules stand in Sources/Platform/Emulator.
include(CMakePackageConfigHelpers)

set(KRC_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/KRClient)
set(KRC_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/KRClient)

install(TARGETS KRClient EXPORT KRClientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET krctl AND KRC_BUILD_TOOLS)
  install(TARGETS krctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# Headers keep the layout of the sources: ZR/, IO/, ZRXML/, Gfx/, NewDisplay/, Network/, KRCB/,
# Kerrow/, KRClient/.
foreach(_dir
    Sources/Platform/ZRRoot/ZR
    Sources/Platform/IO/IO
    Sources/Platform/ZRXML/ZRXML
    Sources/Platform/Gfx/Gfx
    Sources/Platform/NewDisplay/NewDisplay
    Sources/Platform/Network/Network
    Sources/Platform/JSON/JSON
    Sources/Platform/KRClientBase/KRCB
    Sources/Platform/KRClientBase/Kerrow
    Sources/KRClient)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${_dir} DESTINATION ${KRC_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h"
    PATTERN "Internal" EXCLUDE)
endforeach()
install(DIRECTORY ${KRC_GENERATED_INCLUDE_DIR}/ DESTINATION ${KRC_INSTALL_INCLUDEDIR})

install(EXPORT KRClientTargets NAMESPACE KRClient:: DESTINATION ${KRC_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KRClientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KRClientConfig.cmake INSTALL_DESTINATION ${KRC_INSTALL_CMAKEDIR})
# 0.x: a new minor version may break the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KRClientConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KRClientConfig.cmake ${PROJECT_BINARY_DIR}/KRClientConfigVersion.cmake
  DESTINATION ${KRC_INSTALL_CMAKEDIR})

# Relocatable: the prefix is found from where the .pc file lies.
file(RELATIVE_PATH KRC_PC_TO_PREFIX /_/${CMAKE_INSTALL_LIBDIR}/pkgconfig /_)
# No -std there: a host chooses its standard, C++20 or later (CMake hosts get
# cxx_std_20 as a compile feature of KRClient::KRClient).
configure_file(${PROJECT_SOURCE_DIR}/cmake/KRClient.pc.in ${PROJECT_BINARY_DIR}/KRClient.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/KRClient.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TARGET KRClientEmulatorPackage)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/KRClientEmulator.pc.in
    ${PROJECT_BINARY_DIR}/KRClientEmulator.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/KRClientEmulator.pc COMPONENT Emulator
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
