# SPDX-License-Identifier: Apache-2.0
# Flags that every target of the project shares: link to vxkit_build_flags.

add_library(vxkit_build_flags INTERFACE)

target_compile_options(vxkit_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wconversion -Wno-sign-conversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual>
  $<$<BOOL:${VXKIT_WERROR}>:-Werror>)

# The same bits on every processor: no contraction to fused multiply-add, no fast-math. The two -fno flags
# change no value; they let loops with square roots and comparisons vectorise.
target_compile_options(vxkit_build_flags INTERFACE
  -ffp-contract=off -fno-math-errno -fno-trapping-math)

# Texts with a source path read "modules/...", not the build machine's folder.
file(RELATIVE_PATH relative_source_dir ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
target_compile_options(vxkit_build_flags INTERFACE
  "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/="
  "-fmacro-prefix-map=${relative_source_dir}=")  # compiler caches make paths relative

if(VXKIT_SANITIZE)
  target_compile_options(vxkit_build_flags INTERFACE
    -fsanitize=${VXKIT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vxkit_build_flags INTERFACE -fsanitize=${VXKIT_SANITIZE})
  if(VXKIT_SANITIZE MATCHES "thread")
    # Tests that count allocations define operators that this sanitizer's runtime defines too.
    target_link_options(vxkit_build_flags INTERFACE LINKER:-z,muldefs)
  endif()
  if(VXKIT_SANITIZE MATCHES "undefined")
    target_compile_options(vxkit_build_flags INTERFACE -fsanitize=float-cast-overflow)
    target_link_options(vxkit_build_flags INTERFACE -fsanitize=float-cast-overflow)
  endif()
endif()

# Every part counts its edges, so that the fuzzer finds its way through them; fuzz/ links its engine.
if(VXKIT_FUZZ)
  target_compile_options(vxkit_build_flags INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(vxkit_build_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
