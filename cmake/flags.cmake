# Flags that every target of the project is compiled with, as one interface library.

add_library(tavo_flags INTERFACE)
target_include_directories(tavo_flags INTERFACE ${PROJECT_SOURCE_DIR})
# A record must hold the same bits on every processor and on the GPU: no fused multiply-add, no fast mathematics.
# g++ 12 warns of its own std::string at -O3 (GCC bug 105651): -Wno-restrict.
set(TAVO_CXX_FLAGS -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Wno-restrict
                   -ffp-contract=off)
set(TAVO_CUDA_FLAGS
    --fmad=false
    --prec-div=true
    --prec-sqrt=true
    --ftz=false
    # constexpr functions of the other folders may be called on the device.
    --expt-relaxed-constexpr
    -Xcompiler=-Wall,-Wextra,-ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  # It does not know all of g++'s warnings.
  list(APPEND TAVO_CXX_FLAGS -Wno-unknown-warning-option)
endif()
if(TAVO_WERROR)
  list(APPEND TAVO_CXX_FLAGS -Werror)
  list(APPEND TAVO_CUDA_FLAGS --Werror=all-warnings)
endif()
target_compile_options(tavo_flags INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:${TAVO_CXX_FLAGS}>"
                                            "$<$<COMPILE_LANGUAGE:CUDA>:${TAVO_CUDA_FLAGS}>")
if(TAVO_SANITIZE)
  target_compile_options(tavo_flags INTERFACE -fsanitize=${TAVO_SANITIZE} -fno-sanitize-recover=all
                                              -fno-omit-frame-pointer
                                              # g++ 12 warns of its own <regex> and <vector> in instrumented code.
                                              -Wno-maybe-uninitialized -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  target_link_options(tavo_flags INTERFACE -fsanitize=${TAVO_SANITIZE})
endif()
if(TAVO_FUZZ)
  # What libFuzzer follows; the targets in fuzz/ link the fuzzer itself.
  target_compile_options(tavo_flags INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(tavo_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Release builds are hardened: checked memory and string functions, canaries on the stack, relocations that become read-only
# before main, code at random addresses. -fPIE and not -fPIC, which would keep functions from being inlined.
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
# Level 3 needs both the compiler and the C library.
check_cxx_source_compiles(
  "#include <features.h>
   #if !defined(__USE_FORTIFY_LEVEL) || __USE_FORTIFY_LEVEL < 3
   #error no level 3
   #endif
   int main() { return 0; }"
  TAVO_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
set(TAVO_FORTIFY_LEVEL 2)
if(TAVO_FORTIFY_3)
  set(TAVO_FORTIFY_LEVEL 3)
endif()
if(NOT TAVO_SANITIZE)
  set(hardened "$<AND:$<CONFIG:Release>,$<COMPILE_LANGUAGE:CXX>>")
  # A module is at random addresses anyway, and wants -fPIC.
  set(no_module "$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,MODULE_LIBRARY>>")
  target_compile_options(
    tavo_flags
    INTERFACE "$<${hardened}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${TAVO_FORTIFY_LEVEL};-fstack-protector-strong>"
              "$<$<AND:${hardened},${no_module}>:-fPIE>")
  target_link_options(tavo_flags INTERFACE "$<$<CONFIG:Release>:-Wl,-z,relro;-Wl,-z,now>"
                      "$<$<AND:$<CONFIG:Release>,${no_module}>:-pie>")
endif()

find_package(Threads REQUIRED)
target_link_libraries(tavo_flags INTERFACE Threads::Threads)
