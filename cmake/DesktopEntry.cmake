# Install-time step: writes the desktop entry with the installed agent's absolute path.
# Expects VARNOTH_DESKTOP_TEMPLATE, VARNOTH_DESKTOP_ENTRY and VARNOTH_INSTALL_BINDIR.
if(IS_ABSOLUTE "${VARNOTH_INSTALL_BINDIR}")
  set(agent "${VARNOTH_INSTALL_BINDIR}/varnoth-agent")
else()
  set(agent "${CMAKE_INSTALL_PREFIX}/${VARNOTH_INSTALL_BINDIR}/varnoth-agent")
endif()
# Exec quoting: inside double quotes ", `, $ and \ take a backslash; the entry's string escaping then
# doubles every backslash, and % is written %% so it is not read as a field code.
string(REGEX REPLACE "([\"`$\\\\])" "\\\\\\1" agent "${agent}")
string(REPLACE "\\" "\\\\" agent "${agent}")
string(REPLACE "%" "%%" agent "${agent}")
set(VARNOTH_AGENT_EXEC "\"${agent}\"")
configure_file("${VARNOTH_DESKTOP_TEMPLATE}" "${VARNOTH_DESKTOP_ENTRY}" @ONLY)
