# What the libraries have in common. docs/decisions/0009-one-shared-library.md says why they are built so.

# `name` is that of the exported target: varo::NAME.
function(varo_library target name)
  target_compile_features(${target} PUBLIC cxx_std_20)
  # The same objects go into archives and into the shared library: they are compiled once.
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${name}
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# The classes have state of the process (threads, defaults), and the shared library has a copy of them to
# itself. CMake refuses targets that link libraries of both kinds, which would get two of everything.
function(varo_copy_of_classes target kind)
  set_target_properties(${target} PROPERTIES INTERFACE_VARO_CLASSES ${kind})
  set_property(TARGET ${target} APPEND PROPERTY COMPATIBLE_INTERFACE_STRING VARO_CLASSES)
endfunction()
