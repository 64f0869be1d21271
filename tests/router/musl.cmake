# The target with a small C library: Debian's MIPS compiler with musl, whose folder TORVANE_MUSL names.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/mips-linux-gnu.cmake)
set(CMAKE_C_COMPILER $ENV{TORVANE_MUSL}/bin/musl-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_C_COMPILER})
# Of C++ there are only the compiler's headers, set up for another C library: what they ask of that one is answered here,
# and what they would call is not there.
file(GLOB cxx_headers /usr/mips-linux-gnu/include/c++/*)
set(CMAKE_CXX_FLAGS_INIT "-I${cxx_headers} -I${cxx_headers}/mips-linux-gnu '-D__GLIBC_PREREQ(a,b)=0'")
set(CMAKE_CXX_COMPILER_WORKS TRUE) # which CMake would try with a whole C++ program
