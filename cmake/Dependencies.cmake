# Libraries from Debian's packages (scripts/bootstrap installs them).
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(pugixml REQUIRED)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
find_package(Iconv REQUIRED) # part of glibc; libiconv on macOS
if(APPLE)
  # The SDK's own ldap.h marks the calls the directory client makes deprecated (fatal under -Werror), and
  # its declarations need not match the library linked. Headers and libraries both come from Homebrew's
  # OpenLDAP, which is keg-only and so on no default path; directory/ puts its headers first.
  execute_process(COMMAND brew --prefix openldap OUTPUT_VARIABLE openldap_prefix
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  set(openldap_hints ${openldap_prefix} /opt/homebrew/opt/openldap /usr/local/opt/openldap)
  find_path(LDAP_INCLUDE_DIR ldap.h HINTS ${openldap_hints} PATH_SUFFIXES include NO_DEFAULT_PATH REQUIRED)
  find_library(LDAP_LIBRARY ldap HINTS ${openldap_hints} PATH_SUFFIXES lib NO_DEFAULT_PATH REQUIRED)
  find_library(LBER_LIBRARY lber HINTS ${openldap_hints} PATH_SUFFIXES lib NO_DEFAULT_PATH REQUIRED)
endif()
find_library(LDAP_LIBRARY ldap REQUIRED)
find_library(LBER_LIBRARY lber REQUIRED)
find_library(SASL2_LIBRARY sasl2 REQUIRED)
if(VARNOTH_BUILD_APP OR VARNOTH_BUILD_TESTS)
  find_package(GTest)
endif()
