# Where things are installed, and what makes two builds of the same sources the same files.

# The port's libraries are this program's own, so they stay out of the linker's path. They are found relative to the program,
# so that any prefix serves, and a tree that was moved.
set(JX_LIBRARY_DIR ${CMAKE_INSTALL_LIBDIR}/${PROJECT_NAME})
if(JX_PLATFORM STREQUAL linux)
  file(RELATIVE_PATH from_programs /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${JX_LIBRARY_DIR})
  set(CMAKE_INSTALL_RPATH "$ORIGIN/${from_programs}")
endif()
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME jxdownloader)

# A path of the build that reached a program would make it differ from the same program built elsewhere.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
add_compile_options($<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=>)
