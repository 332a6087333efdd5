# kv_add_plugin(<target> <sources>...): one conversion plug-in module. It is built into the
# build tree's plug-in folder (KV_BUILD_PLUGIN_DIR) and installed into KV_PLUGIN_INSTALL_DIR,
# the two places the platform's plug-in manager searches by default. The module links the
# library; the plug-in manager finds it by its exported C entry point.
file(RELATIVE_PATH KV_PLUGIN_TO_LIB
  "${CMAKE_INSTALL_PREFIX}/${KV_PLUGIN_INSTALL_DIR}" "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")

function(kv_add_plugin target)
  add_library(${target} MODULE ${ARGN})
  target_link_libraries(${target} PRIVATE kvimage)
  set_target_properties(${target} PROPERTIES
    PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY ${KV_BUILD_PLUGIN_DIR}
    INSTALL_RPATH "$ORIGIN/${KV_PLUGIN_TO_LIB}")
  add_dependencies(runtime ${target})
  install(TARGETS ${target} LIBRARY DESTINATION ${KV_PLUGIN_INSTALL_DIR} COMPONENT runtime)
endfunction()
