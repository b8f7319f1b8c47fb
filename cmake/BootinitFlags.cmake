# Compiler and linker settings shared by every target of the project.

set(BOOTINIT_WARNINGS
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wformat=2
    -Wnull-dereference -Wimplicit-fallthrough -Werror)
set(BOOTINIT_CXX_WARNINGS -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual)

set(BOOTINIT_HARDENING -fstack-protector-strong -fstack-clash-protection)
if(NOT BOOTINIT_SANITIZE AND NOT BOOTINIT_FUZZ)
  # Fortification and the sanitizers instrument the same calls; keep them apart.
  # (It needs an optimising build; glibc warns, and -Werror fails, without one.)
  list(APPEND BOOTINIT_HARDENING $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
endif()

if(BOOTINIT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# libFuzzer trees (clang): the library's objects and the harnesses get coverage feedback,
# AddressSanitizer and UBSan (tests/fuzz applies them). The platform libraries stay as they are:
# clang links its sanitizer runtime into executables only, and they are linked --no-undefined.
set(BOOTINIT_FUZZ_FLAGS -fsanitize=fuzzer-no-link,address,undefined
    -fno-sanitize-recover=undefined -fno-omit-frame-pointer)

# Strict settings for the project's own production code (library, platform, tools).
function(bootinit_strict target)
  target_compile_options(${target} PRIVATE ${BOOTINIT_WARNINGS} ${BOOTINIT_HARDENING}
                         $<$<COMPILE_LANGUAGE:CXX>:${BOOTINIT_CXX_WARNINGS} -D_GLIBCXX_ASSERTIONS>)
  set_target_properties(${target} PROPERTIES C_VISIBILITY_PRESET hidden
                        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
endfunction()

# A shared library with an explicit export list; nothing undefined may remain at link time.
function(bootinit_shared_library target version_script)
  bootinit_strict(${target})
  target_link_options(${target} PRIVATE -Wl,--no-undefined
                      -Wl,--version-script=${version_script})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${version_script})
endfunction()

# Tests are built with the usual warnings but without the conversion pedantry of the library.
function(bootinit_test_flags target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wno-format-truncation)
endfunction()
