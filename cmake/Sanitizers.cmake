# Sanitizer and coverage builds. Both apply to every target of the tree, so that libnerox.so,
# game.so, the host, the modules and the tests are instrumented alike.
if(TESSARA_ASAN AND TESSARA_TSAN)
  message(FATAL_ERROR "TESSARA_ASAN and TESSARA_TSAN cannot be combined")
endif()
if(TESSARA_ASAN)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(TESSARA_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
if(TESSARA_FUZZ)
  # Coverage for libFuzzer in every library, so that it sees into game.so and libnerox.so.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(TESSARA_COVERAGE)
  # Line and branch counts for gcovr; unoptimised so that every line maps to code.
  add_compile_options(--coverage -O0 -fno-inline)
  add_link_options(--coverage)
endif()
