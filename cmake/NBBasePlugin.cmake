# nbbase_add_plugin(<target> CLASS <PrincipalClass> OUTPUT_DIRECTORY <folder> SOURCES <file>...
#                   [BUNDLE <Name>] [EXTENSION <ext>] [IDENTIFIER <id>]
#                   [INSTALL_DIRECTORY <folder> [COMPONENT <component>]])
#
# Builds a plug-in folder <folder>/<Name>.<ext> (Name defaults to the target, ext to "nbp") holding the
# shared library <Name>.so, built from the sources and linked to NBBase::nbbase, and an Info.plist naming
# the library (CFBundleExecutable) and the principal class (NSPrincipalClass). The sources define the class
# and its entry point with NB_PLUGIN_PRINCIPAL_CLASS. Point <folder> at the application's "PlugIns" folder.
# With INSTALL_DIRECTORY, `cmake --install` puts the same plug-in folder there (relative to the prefix),
# in the given install component.
function(nbbase_add_plugin target)
  cmake_parse_arguments(PLUGIN "" "CLASS;OUTPUT_DIRECTORY;BUNDLE;EXTENSION;IDENTIFIER;INSTALL_DIRECTORY;COMPONENT" "SOURCES" ${ARGN})
  if(NOT PLUGIN_CLASS OR NOT PLUGIN_OUTPUT_DIRECTORY OR NOT PLUGIN_SOURCES)
    message(FATAL_ERROR "nbbase_add_plugin(${target}): CLASS, OUTPUT_DIRECTORY and SOURCES are required")
  endif()
  if(NOT PLUGIN_BUNDLE)
    set(PLUGIN_BUNDLE ${target})
  endif()
  if(NOT PLUGIN_EXTENSION)
    set(PLUGIN_EXTENSION nbp)
  endif()
  if(NOT PLUGIN_IDENTIFIER)
    set(PLUGIN_IDENTIFIER "plugin.${PLUGIN_BUNDLE}")
  endif()
  set(folder ${PLUGIN_OUTPUT_DIRECTORY}/${PLUGIN_BUNDLE}.${PLUGIN_EXTENSION})

  add_library(${target} MODULE ${PLUGIN_SOURCES})
  target_link_libraries(${target} PRIVATE NBBase::nbbase)
  # Only the entry point needs to be seen; it is marked visible by the macro.
  set_target_properties(${target} PROPERTIES
    PREFIX "" OUTPUT_NAME ${PLUGIN_BUNDLE} SUFFIX ".so"
    LIBRARY_OUTPUT_DIRECTORY ${folder}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  file(GENERATE OUTPUT ${folder}/Info.plist CONTENT "<?xml version=\"1.0\" encoding=\"UTF-8\"?>
<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">
<plist version=\"1.0\">
<dict>
	<key>CFBundleIdentifier</key>
	<string>${PLUGIN_IDENTIFIER}</string>
	<key>CFBundleExecutable</key>
	<string>$<TARGET_FILE_NAME:${target}></string>
	<key>NSPrincipalClass</key>
	<string>${PLUGIN_CLASS}</string>
</dict>
</plist>
")
  if(PLUGIN_INSTALL_DIRECTORY)
    if(NOT PLUGIN_COMPONENT)
      set(PLUGIN_COMPONENT Unspecified)
    endif()
    set(installed ${PLUGIN_INSTALL_DIRECTORY}/${PLUGIN_BUNDLE}.${PLUGIN_EXTENSION})
    install(TARGETS ${target} LIBRARY DESTINATION ${installed} COMPONENT ${PLUGIN_COMPONENT})
    install(FILES ${folder}/Info.plist DESTINATION ${installed} COMPONENT ${PLUGIN_COMPONENT})
  endif()
endfunction()
