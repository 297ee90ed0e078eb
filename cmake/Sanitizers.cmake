# Applies the sanitizer chosen with YMSDK_SANITIZE to every target of the project: address
# (AddressSanitizer with UBSan), thread (ThreadSanitizer) or fuzzer (for the libFuzzer targets).
# The address and fuzzer builds also check every container subscript: a read one past the end of a
# vector stays inside its capacity, where AddressSanitizer cannot see it.
if(YMSDK_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined
                      -D_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=address,undefined)
elseif(YMSDK_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(YMSDK_SANITIZE STREQUAL "fuzzer")
  # For libFuzzer: every object instrumented for coverage, AddressSanitizer and UBSan.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined
                      -D_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=address,undefined)
elseif(NOT YMSDK_SANITIZE STREQUAL "")
  message(FATAL_ERROR "YMSDK_SANITIZE must be empty, 'address' or 'thread', not '${YMSDK_SANITIZE}'")
endif()
