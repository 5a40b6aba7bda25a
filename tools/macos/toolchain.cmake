# Builds for macOS 10.13 and later, x86_64, on Debian.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER ${CMAKE_CURRENT_LIST_DIR}/cc)
set(CMAKE_CXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/c++)
set(CMAKE_OBJCXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/c++)
set(CMAKE_ASM_COMPILER ${CMAKE_CURRENT_LIST_DIR}/cc)
set(CMAKE_AR /usr/bin/llvm-ar)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib)
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool)
# The compiler knows its target and has the headers of it.
set(CMAKE_OSX_ARCHITECTURES "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "")
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
# Told, not tried: a program to try it with would have the compiler build its C++ library first.
foreach(language C CXX OBJCXX ASM)
  set(CMAKE_${language}_COMPILER_ID_RUN TRUE)
  set(CMAKE_${language}_COMPILER_ID Clang)
  set(CMAKE_${language}_COMPILER_VERSION 21.1.0)
  set(CMAKE_${language}_COMPILER_FRONTEND_VARIANT GNU)
  set(CMAKE_${language}_COMPILER_FORCED TRUE)
endforeach()
set(CMAKE_C_STANDARD_COMPUTED_DEFAULT 17)
set(CMAKE_C_EXTENSIONS_COMPUTED_DEFAULT ON)
set(CMAKE_CXX_STANDARD_COMPUTED_DEFAULT 17)
set(CMAKE_CXX_EXTENSIONS_COMPUTED_DEFAULT ON)
set(CMAKE_OBJCXX_STANDARD_COMPUTED_DEFAULT 17)
set(CMAKE_OBJCXX_EXTENSIONS_COMPUTED_DEFAULT ON)
# What the undefined-behaviour sanitizer adds unasked where nothing is optimised.
set(CMAKE_C_FLAGS_INIT "-fno-sanitize=undefined")
set(CMAKE_CXX_FLAGS_INIT "-fno-sanitize=undefined")
set(CMAKE_OBJCXX_FLAGS_INIT "-fno-sanitize=undefined")

set(CORVANE_MACOS_HEADERS ${CMAKE_CURRENT_LIST_DIR}/../../build/macos-compiler/include)
# A cache of objects would look at the scripts, not at the compiler that is behind them.
set(CMAKE_C_COMPILER_LAUNCHER "")
set(CMAKE_CXX_COMPILER_LAUNCHER "")
set(CMAKE_OBJCXX_COMPILER_LAUNCHER "")
list(PREPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR}/modules)

set(CMAKE_CROSSCOMPILING_EMULATOR
  ${CMAKE_CURRENT_LIST_DIR}/../../build/macos-emulator/macos-emulator
  --with ${CMAKE_CURRENT_LIST_DIR}/../../build/macos/libmacos-frameworks.dylib)

# What a program is linked with, and in which order, is the script's.
set(CMAKE_CXX_LINK_EXECUTABLE
  "${CMAKE_CURRENT_LIST_DIR}/link -o <TARGET> <OBJECTS> <LINK_LIBRARIES>")
set(CMAKE_OBJCXX_LINK_EXECUTABLE "${CMAKE_CXX_LINK_EXECUTABLE}")
