# The library's internal layers, lowest first. Each layer is an object
# library compiled against an include root of its own that holds only the
# layers beneath it and itself (symbolic links into src/), so an include of
# a higher layer ("editor/…" from voxa/, say) is a missing file and fails
# the build. The shared library and the `tev` tool link the same objects.
#
#   util → stream → container → editor | voxa → echo → jni
set(TEV_LAYERS util stream container editor voxa echo jni)
set(TEV_LAYER_DEPS_util)
set(TEV_LAYER_DEPS_stream util)
set(TEV_LAYER_DEPS_container util stream)
set(TEV_LAYER_DEPS_editor util stream container)
set(TEV_LAYER_DEPS_voxa util stream container)
set(TEV_LAYER_DEPS_echo util stream container editor voxa)
set(TEV_LAYER_DEPS_jni util stream container editor voxa echo)

set(TEV_LAYER_ROOT ${PROJECT_BINARY_DIR}/layers)

# Makes ${TEV_LAYER_ROOT}/<name>/ with a link to each layer in `layers`.
function(tev_layer_include_root name)
  set(root ${TEV_LAYER_ROOT}/${name})
  file(REMOVE_RECURSE ${root})
  file(MAKE_DIRECTORY ${root})
  foreach(layer IN LISTS ARGN)
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/src/${layer} ${root}/${layer} SYMBOLIC)
  endforeach()
endfunction()

set(TEV_LAYER_OBJECTS)
foreach(layer IN LISTS TEV_LAYERS)
  tev_layer_include_root(${layer} ${TEV_LAYER_DEPS_${layer}} ${layer})
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${layer}/*.cpp)
  add_library(tev_${layer} OBJECT ${sources})
  set_target_properties(tev_${layer} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(tev_${layer} PRIVATE ${PROJECT_SOURCE_DIR}/include ${TEV_LAYER_ROOT}/${layer})
  target_compile_options(tev_${layer} PRIVATE -Wall -Wextra -Werror -fno-rtti)
  target_link_libraries(tev_${layer} PRIVATE tev_liblog)
  list(APPEND TEV_LAYER_OBJECTS $<TARGET_OBJECTS:tev_${layer}>)
endforeach()

# Everything but the Java binding: what the `tev` tool links.
set(TEV_CORE_OBJECTS ${TEV_LAYER_OBJECTS})
list(FILTER TEV_CORE_OBJECTS EXCLUDE REGEX "tev_jni")
# The tool sits above every layer but the binding.
tev_layer_include_root(tool util stream container editor voxa echo)
