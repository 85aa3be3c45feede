# The macOS layer (platform/mac) is Objective-C++. A Mac builds it into the agent with Apple's
# frameworks. On Linux, GCC with Debian's GNUstep packages (scripts/bootstrap installs them) builds it
# against GNUstep's Foundation for its tests only; the Linux agent never links it. Clang builds (the
# fuzz targets) leave it out: GNUstep's flags here are those of GCC's Objective-C runtime.
set(VARNOTH_GNUSTEP OFF)
if(APPLE)
  enable_language(OBJC OBJCXX)
elseif(VARNOTH_BUILD_TESTS AND NOT VARNOTH_BUILD_FUZZ AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  find_program(GNUSTEP_CONFIG gnustep-config)
  if(GNUSTEP_CONFIG)
    # The same compiler family as the C++ code, and the same cache in front of it.
    if(NOT CMAKE_OBJCXX_COMPILER)
      set(CMAKE_OBJCXX_COMPILER ${CMAKE_CXX_COMPILER})
    endif()
    if(NOT CMAKE_OBJC_COMPILER)
      find_program(CMAKE_OBJC_COMPILER NAMES gcc-${CMAKE_CXX_COMPILER_VERSION_MAJOR} gcc)
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
    target_link_libraries(GNUstep::Base INTERFACE ${base_libs})
    # CMake 3.25 knows no language-standard options for GCC's Objective-C and Objective-C++.
    target_compile_options(GNUstep::Base INTERFACE
      "$<$<COMPILE_LANGUAGE:OBJC>:-std=c11>" "$<$<COMPILE_LANGUAGE:OBJCXX>:-std=c++20>")
  endif()
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
