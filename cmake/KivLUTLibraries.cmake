# The project's libraries are all made the same way: their sources compiled once into an OBJECT
# library, an installed shared library of those objects that exports only what the public headers
# mark, and, where tests need the internals, a static library of the same objects. A program links
# either the shared or the static one, never both: it would hold two copies of their state.

# kivlut_add_objects(NAME SOURCES...): hidden visibility, position-independent, C++17, and no
# floating-point contraction, on which results depend.
function(kivlut_add_objects name)
  add_library(${name} OBJECT ${ARGN})
  target_compile_features(${name} PUBLIC cxx_std_17)
  target_compile_options(${name} PRIVATE ${KIVLUT_EXACT_FLOAT_FLAGS})
  set_target_properties(${name} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
endfunction()

# kivlut_add_shared_library(NAME OBJECTS): the installed library, also known in the tree by its
# exported name KivLUTSetting::NAME, finding its installed neighbours in its own folder. It links
# what its objects link.
function(kivlut_add_shared_library name objects)
  add_library(${name} SHARED)
  add_library(KivLUTSetting::${name} ALIAS ${name})
  target_compile_features(${name} PUBLIC cxx_std_17)
  target_link_libraries(${name} PRIVATE ${objects})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${name} EXPORT KivLUTSettingTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# kivlut_add_internal_library(NAME OBJECTS INTERNAL_INCLUDE_DIR): the same objects as a static
# library for the tests that reach internals, with the internal headers in reach; never installed.
function(kivlut_add_internal_library name objects internal_include_dir)
  add_library(${name} STATIC)
  target_link_libraries(${name} PUBLIC ${objects})
  target_include_directories(${name} PUBLIC ${internal_include_dir})
endfunction()
