# What a program that reads bytes from strangers is compiled with: checks of the stack and of the C library's copies, and
# tables of addresses that are read-only once the program runs. Not with sanitizers, which check more.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(NOT JX_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
