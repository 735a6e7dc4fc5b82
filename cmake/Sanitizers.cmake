# JX_SANITIZE: a -fsanitize= list for everything in the build, such as "address,undefined" or "thread".
set(JX_SANITIZE "" CACHE STRING "sanitizers, as -fsanitize= takes them")
if(JX_SANITIZE)
  add_compile_options(-fsanitize=${JX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${JX_SANITIZE})
endif()
