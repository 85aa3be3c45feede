# The macOS layer (platform/mac) is Objective-C++. A Mac builds it into the agent with Apple's
# frameworks. On Linux, GCC with Debian's GNUstep packages (scripts/bootstrap installs them) builds it
# against GNUstep's Foundation for its tests only; the Linux agent never links it. Clang builds (the
# fuzz targets) leave it out: GNUstep's flags here are those of GCC's Objective-C runtime.
set(VARNOTH_GNUSTEP OFF)
if(APPLE)
  enable_language(OBJC OBJCXX)
  # Objective-C objects are owned by hand everywhere (retain, release, autorelease pools), as GCC's
  # Objective-C for the GNUstep tests knows only that; Clang must not turn ARC on.
  add_compile_options("$<$<COMPILE_LANGUAGE:OBJC,OBJCXX>:-fno-objc-arc>")
elseif(VARNOTH_BUILD_TESTS AND NOT VARNOTH_BUILD_FUZZ AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  find_program(GNUSTEP_CONFIG gnustep-config)
  if(GNUSTEP_CONFIG)
    # The same compiler family as the C++ code, and the same cache in front of it.
    if(NOT CMAKE_OBJCXX_COMPILER)
      set(CMAKE_OBJCXX_COMPILER ${CMAKE_CXX_COMPILER})
    endif()
    if(NOT CMAKE_OBJC_COMPILER)
      string(REGEX MATCH "^[0-9]+" gcc_major "${CMAKE_CXX_COMPILER_VERSION}")
      find_program(CMAKE_OBJC_COMPILER NAMES gcc-${gcc_major} gcc)
    endif()
    enable_language(OBJC OBJCXX)
    set(VARNOTH_GNUSTEP ON)

    # gnustep-config's flags without its own warning, debug and dependency options: the definitions,
    # the runtime's -f options and the header folders (as system headers, so -Werror stays ours).
    execute_process(COMMAND ${GNUSTEP_CONFIG} --objc-flags OUTPUT_VARIABLE objc_flags OUTPUT_STRIP_TRAILING_WHITESPACE)
    execute_process(COMMAND ${GNUSTEP_CONFIG} --base-libs OUTPUT_VARIABLE base_libs OUTPUT_STRIP_TRAILING_WHITESPACE)
    separate_arguments(objc_flags UNIX_COMMAND "${objc_flags}")
    separate_arguments(base_libs UNIX_COMMAND "${base_libs}")
    add_library(GNUstep::Base INTERFACE IMPORTED)
    foreach(flag IN LISTS objc_flags)
      if(flag MATCHES "^-I(/.+)$")
        if(IS_DIRECTORY "${CMAKE_MATCH_1}")
          target_include_directories(GNUstep::Base SYSTEM INTERFACE "${CMAKE_MATCH_1}")
        endif()
      elseif(flag MATCHES "^-D|^-f|^-pthread$")
        target_compile_options(GNUstep::Base INTERFACE "$<$<COMPILE_LANGUAGE:OBJC,OBJCXX>:${flag}>")
      endif()
    endforeach()
    foreach(flag IN LISTS base_libs)
      if(flag MATCHES "^-L(.+)$")
        if(IS_DIRECTORY "${CMAKE_MATCH_1}")
          target_link_directories(GNUstep::Base INTERFACE "${CMAKE_MATCH_1}")
        endif()
      else()
        target_link_libraries(GNUstep::Base INTERFACE "${flag}")
      endif()
    endforeach()
    # CMake 3.25 knows no language-standard options for GCC's Objective-C and Objective-C++.
    target_compile_options(GNUstep::Base INTERFACE
      "$<$<COMPILE_LANGUAGE:OBJC>:-std=c11>" "$<$<COMPILE_LANGUAGE:OBJCXX>:-std=c++20>")
  else()
    # A test build that quietly lost the bridge tests would look complete; .ci/run fails on it.
    message(WARNING "The Objective-C bridge tests (tests/objc) are NOT built: gnustep-config was not "
      "found. scripts/bootstrap installs GNUstep (gobjc gobjc++ gnustep-make libgnustep-base-dev); "
      "configure again after it.")
  endif()
elseif(VARNOTH_BUILD_TESTS)
  message(STATUS "The Objective-C bridge tests (tests/objc) are left out of this "
    "${CMAKE_CXX_COMPILER_ID} build: GNUstep's flags here are those of GCC's Objective-C runtime, so "
    "only a GCC build without VARNOTH_BUILD_FUZZ builds them.")
endif()
if(APPLE OR VARNOTH_GNUSTEP)
  set(CMAKE_OBJC_STANDARD 11)
  set(CMAKE_OBJCXX_STANDARD 20)
  set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
  set(CMAKE_OBJCXX_EXTENSIONS OFF)
  foreach(language OBJC OBJCXX)
    if(CMAKE_CXX_COMPILER_LAUNCHER AND NOT CMAKE_${language}_COMPILER_LAUNCHER)
      set(CMAKE_${language}_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
    endif()
  endforeach()
endif()
