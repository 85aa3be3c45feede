# How the agent reaches its users, included where the varnoth-agent target is made.
#
# Linux: an installed tree as a package would lay it out: bin/varnoth-agent, its resources in
# share/varnoth-agent/resources (the agent looks there relative to its own executable, as an
# application bundle keeps them in Contents/Resources), a desktop entry, an icon in the hicolor theme
# and the manual page.
#
# macOS: an application bundle "Varnoth Brelvane Agent.app" with the information dictionary of
# packaging/Info.plist.in and the resources in Contents/Resources (the Outlook script compiled by
# osacompile, the two status images). The build does not sign it: macdeployqt changes the bundle
# afterwards, which would break a signature, so scripts/sign-macos-bundle signs the finished bundle.

set(varnoth_packaging ${PROJECT_SOURCE_DIR}/packaging)
set(varnoth_resources
  ${PROJECT_SOURCE_DIR}/resources/OutlookScriptObj.applescript
  ${PROJECT_SOURCE_DIR}/resources/menu_icon.png
  ${PROJECT_SOURCE_DIR}/resources/menu_icon@2x.png
  ${PROJECT_SOURCE_DIR}/resources/menu_icon_progress.png
  ${PROJECT_SOURCE_DIR}/resources/menu_icon_progress@2x.png
)

if(APPLE)
  # The executable carries the bundle name, as Finder and the login item show it.
  set_target_properties(varnoth-agent PROPERTIES
    MACOSX_BUNDLE TRUE
    OUTPUT_NAME "${VARNOTH_BUNDLE_NAME}"
    MACOSX_BUNDLE_INFO_PLIST ${varnoth_packaging}/Info.plist.in
    XCODE_ATTRIBUTE_PRODUCT_BUNDLE_IDENTIFIER "${VARNOTH_BUNDLE_IDENTIFIER}"
  )

  # AppleScriptObjC loads the compiled script from Contents/Resources (the agent links the framework
  # through the varnoth library); the source travels along. osacompile resolves the script's Outlook
  # terms against the installed Outlook's dictionary, so the build machine needs Outlook for Mac.
  set(bundle_resources ${varnoth_resources})
  find_program(VARNOTH_OSACOMPILE osacompile REQUIRED)
  set(compiled_script ${CMAKE_CURRENT_BINARY_DIR}/OutlookScriptObj.scpt)
  add_custom_command(OUTPUT ${compiled_script}
    COMMAND ${VARNOTH_OSACOMPILE} -l AppleScript -o ${compiled_script}
            ${PROJECT_SOURCE_DIR}/resources/OutlookScriptObj.applescript
    DEPENDS ${PROJECT_SOURCE_DIR}/resources/OutlookScriptObj.applescript
    COMMENT "Compiling the Outlook script")
  list(APPEND bundle_resources ${compiled_script})
  target_sources(varnoth-agent PRIVATE ${bundle_resources})
  set_source_files_properties(${bundle_resources} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
else()
  set(resources_destination ${CMAKE_INSTALL_DATADIR}/varnoth-agent/resources)
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/resources/OutlookScriptObj DESTINATION ${resources_destination})
  install(FILES ${varnoth_resources} DESTINATION ${resources_destination})

  # The desktop entry names the installed executable by its absolute path, which is known only at
  # install time (cmake --install --prefix may differ from the configured prefix).
  set(VARNOTH_AGENT_EXEC "@VARNOTH_AGENT_EXEC@")
  set(desktop_template ${CMAKE_CURRENT_BINARY_DIR}/desktop-entry.in)
  set(desktop_entry ${CMAKE_CURRENT_BINARY_DIR}/${VARNOTH_BUNDLE_IDENTIFIER}.desktop)
  configure_file(${varnoth_packaging}/varnoth-agent.desktop.in ${desktop_template} @ONLY)
  install(CODE "set(VARNOTH_DESKTOP_TEMPLATE \"${desktop_template}\")
set(VARNOTH_DESKTOP_ENTRY \"${desktop_entry}\")
set(VARNOTH_INSTALL_BINDIR \"${CMAKE_INSTALL_BINDIR}\")")
  install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/DesktopEntry.cmake)
  install(FILES ${desktop_entry} DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${varnoth_packaging}/varnoth-agent.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
    RENAME ${VARNOTH_BUNDLE_IDENTIFIER}.svg)
  install(FILES ${varnoth_packaging}/varnoth-agent.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

# The guides, for administrators preparing a deployment and for users.
install(FILES ${PROJECT_SOURCE_DIR}/docs/admin-guide.md ${PROJECT_SOURCE_DIR}/docs/user-guide.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/varnoth-agent)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/screenshots
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/varnoth-agent FILES_MATCHING PATTERN "*.png")
