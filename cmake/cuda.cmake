# Whether the CUDA backend is built, and for which GPUs. Without a CUDA compiler the program is complete for the CPU.

set(TAVO_CUDA AUTO CACHE STRING "CUDA backend: AUTO (when there is a compiler), ON (fail without one), OFF")
set_property(CACHE TAVO_CUDA PROPERTY STRINGS AUTO ON OFF)
# The last one without a suffix: its intermediate code too, which later GPUs can run.
set(TAVO_CUDA_ARCHITECTURES
    "75-real;80-real;86-real;89-real;90-real;100-real;120"
    CACHE STRING "Compute capabilities to compile for, or native; a build for one takes a seventh of the time")

set(TAVO_HAVE_CUDA OFF)
if(NOT TAVO_CUDA STREQUAL OFF)
  # The sanitizers of the host compiler do not follow device code, and nvcc does not take their flags.
  if(TAVO_SANITIZE)
    if(TAVO_CUDA STREQUAL ON)
      message(FATAL_ERROR "TAVO_CUDA=ON and TAVO_SANITIZE exclude each other")
    endif()
  else()
    include(CheckLanguage)
    check_language(CUDA)
    if(CMAKE_CUDA_COMPILER)
      set(CMAKE_CUDA_ARCHITECTURES "${TAVO_CUDA_ARCHITECTURES}")
      set(CMAKE_CUDA_RUNTIME_LIBRARY Static)
      enable_language(CUDA)
      # CMake before 3.26 does not know how nvcc spells C++20.
      if(NOT CMAKE_CUDA20_STANDARD_COMPILE_OPTION)
        set(CMAKE_CUDA20_STANDARD_COMPILE_OPTION -std=c++20)
        set(CMAKE_CUDA20_EXTENSION_COMPILE_OPTION -std=c++20)
      endif()
      set(CMAKE_CUDA_STANDARD 20)
      find_package(CUDAToolkit REQUIRED)
      set(TAVO_HAVE_CUDA ON)
    elseif(TAVO_CUDA STREQUAL ON)
      message(FATAL_ERROR "TAVO_CUDA=ON, but there is no CUDA compiler")
    endif()
  endif()
endif()
if(TAVO_HAVE_CUDA)
  message(STATUS "CUDA backend: compiled for ${TAVO_CUDA_ARCHITECTURES}")
else()
  message(STATUS "CUDA backend: not built")
endif()
