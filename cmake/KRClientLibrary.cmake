# The library a host links: every component's objects in one shared object
# (or one archive with BUILD_SHARED_LIBS=OFF), with only the exported classes
# and functions visible. The platform libraries stand in for the base system,
# have no other consumer, and change in step with the library, so one SONAME
# serves a host better than five.
get_property(_components GLOBAL PROPERTY KRC_COMPONENTS)
get_property(_roots GLOBAL PROPERTY KRC_INCLUDE_ROOTS)

set(_objects)
foreach(_c IN LISTS _components)
  list(APPEND _objects $<TARGET_OBJECTS:${_c}>)
endforeach()
set(_build_includes $<BUILD_INTERFACE:${KRC_GENERATED_INCLUDE_DIR}>)
foreach(_r IN LISTS _roots)
  list(APPEND _build_includes $<BUILD_INTERFACE:${_r}>)
endforeach()

if(KRC_SHARED)
  add_library(KRClient SHARED ${_objects})
else()
  add_library(KRClient STATIC ${_objects})
endif()
add_library(KRClient::KRClient ALIAS KRClient)
set_target_properties(KRClient PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  EXPORT_NAME KRClient
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_compile_features(KRClient PUBLIC cxx_std_20)
target_include_directories(KRClient PUBLIC ${_build_includes}
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/KRClient>)
target_link_libraries(KRClient
  PUBLIC Threads::Threads
  PRIVATE OpenSSL::Crypto ICU::uc pugixml::pugixml nlohmann_json::nlohmann_json PNG::PNG JPEG::JPEG)

# Everything inside the library, internals included, for this tree's tests,
# tools and benchmarks. Never installed.
add_library(KRClientInternal STATIC)
target_link_libraries(KRClientInternal PUBLIC ${_components})
if(NOT (KRC_BUILD_TESTS OR KRC_BUILD_TOOLS OR KRC_BUILD_BENCHMARKS))
  set_target_properties(KRClientInternal PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
