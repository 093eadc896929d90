# Flags that every target of the project is compiled with, as one interface library.

add_library(tavo_flags INTERFACE)
target_include_directories(tavo_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(
  tavo_flags
  INTERFACE -Wall
            -Wextra
            -Wshadow
            -Wconversion
            -Wno-sign-conversion
            -Wnon-virtual-dtor
            # g++ 12 warns of its own std::string at -O3 (GCC bug 105651).
            -Wno-restrict
            # A record must hold the same bits on every processor and on the GPU: no fused multiply-add.
            -ffp-contract=off)
if(TAVO_WERROR)
  target_compile_options(tavo_flags INTERFACE -Werror)
endif()
if(TAVO_SANITIZE)
  target_compile_options(tavo_flags INTERFACE -fsanitize=${TAVO_SANITIZE} -fno-sanitize-recover=all
                                              -fno-omit-frame-pointer
                                              # g++ 12 warns of its own <regex> in instrumented code.
                                              -Wno-maybe-uninitialized)
  target_link_options(tavo_flags INTERFACE -fsanitize=${TAVO_SANITIZE})
endif()

find_package(Threads REQUIRED)
target_link_libraries(tavo_flags INTERFACE Threads::Threads)
