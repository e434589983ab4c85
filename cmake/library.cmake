# What every library of the project is built with. Other people link it: it may end up inside a
# shared object of theirs, so that also a static library is position-independent code, and it shows
# them the symbols of its public headers alone.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

set(korvain_statistic_exports ${CMAKE_CURRENT_LIST_DIR}/exports.map)

# Without this flag position-independent code reaches its own public functions in a detour, which
# costs instructions in every request.
check_cxx_compiler_flag(-fno-semantic-interposition KORVAIN_STATISTIC_HAS_NO_INTERPOSITION)

set(CMAKE_REQUIRED_LINK_OPTIONS "-Wl,--version-script=${korvain_statistic_exports}")
check_cxx_source_compiles("int main() {}" KORVAIN_STATISTIC_HAS_VERSION_SCRIPT)
unset(CMAKE_REQUIRED_LINK_OPTIONS)

function(korvain_statistic_set_library_properties target)
  set_target_properties(${target} PROPERTIES
      CXX_EXTENSIONS OFF
      POSITION_INDEPENDENT_CODE ON
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON
      VERSION ${PROJECT_VERSION}
      SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_features(${target} PUBLIC cxx_std_17)
  if(KORVAIN_STATISTIC_HAS_NO_INTERPOSITION)
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY" AND KORVAIN_STATISTIC_HAS_VERSION_SCRIPT)
    target_link_options(${target} PRIVATE "-Wl,--version-script=${korvain_statistic_exports}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${korvain_statistic_exports})
  endif()
endfunction()
