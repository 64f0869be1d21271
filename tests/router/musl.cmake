# Debian's MIPS compiler builds for a target with a small C library, musl. The environment's TORVANE_MUSL names the
# folder of musl.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/mips-linux-gnu.cmake)
set(CMAKE_C_COMPILER $ENV{TORVANE_MUSL}/bin/musl-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_C_COMPILER})
# musl brings no C++ library. The compiler's own C++ headers serve, because nothing in them is called at run time. They
# are set up for glibc and use its __GLIBC_PREREQ, which is therefore defined here.
file(GLOB cxx_headers /usr/mips-linux-gnu/include/c++/*)
set(CMAKE_CXX_FLAGS_INIT "-I${cxx_headers} -I${cxx_headers}/mips-linux-gnu '-D__GLIBC_PREREQ(a,b)=0'")
set(CMAKE_CXX_COMPILER_WORKS TRUE) # CMake would try to link a C++ program, which needs the missing C++ library
