# Warnings and instrumentation that every target of this tree is built with (link to qv_warnings).
add_library(qv_warnings INTERFACE)
target_compile_options(qv_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wundef
                                             $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>)
if(QV_WERROR)
  target_compile_options(qv_warnings INTERFACE -Werror)
endif()

# Instrumentation must reach every object of a program, so that it is set for the whole tree.
if(QV_SANITIZE)
  # g++ 12 sees uninitialised reads and overlong copies in instrumented library templates where there are none.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
                      $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-stringop-overflow>)
  add_compile_options(-fsanitize=${QV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QV_SANITIZE})
endif()
if(QV_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()
