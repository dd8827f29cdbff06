# One platform library or the library proper: an object library whose objects
# go into the one shared object a host links (and into the internal archive of
# the tests and tools). Each has its own generated export header, so a platform
# header never includes one of the library's.
include(GenerateExportHeader)

set(KRC_GENERATED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/generated/include)

# krc_add_component(NAME EXPORT_BASE BASE EXPORT_HEADER PATH INCLUDE_ROOT DIR
#                   [SOURCES_GLOB_RECURSE] [DEPENDS ...] [PRIVATE_DEPENDS ...])
function(krc_add_component name)
  cmake_parse_arguments(A "SOURCES_GLOB_RECURSE" "EXPORT_BASE;EXPORT_HEADER;INCLUDE_ROOT"
                        "DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  if(A_SOURCES_GLOB_RECURSE)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  else()
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  endif()
  set(target krc_${name})
  add_library(${target} OBJECT ${sources})
  set_target_properties(${target} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${A_INCLUDE_ROOT}>
    $<BUILD_INTERFACE:${KRC_GENERATED_INCLUDE_DIR}>)
  target_link_libraries(${target} PUBLIC ${A_DEPENDS} PRIVATE ${A_PRIVATE_DEPENDS})
  generate_export_header(${target}
    BASE_NAME ${A_EXPORT_BASE}
    EXPORT_FILE_NAME ${KRC_GENERATED_INCLUDE_DIR}/${A_EXPORT_HEADER})
  set_property(GLOBAL APPEND PROPERTY KRC_COMPONENTS ${target})
  set_property(GLOBAL APPEND PROPERTY KRC_INCLUDE_ROOTS ${A_INCLUDE_ROOT})
endfunction()
