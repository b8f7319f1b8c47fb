// Two error paths of libubootenv 0.3.2 (Debian 12) leak memory, and the leak checker of the
// sanitizer build would fail every test that takes them:
//  - libuboot_read_config on a malformed configuration line keeps the device name that its
//    sscanf("%ms ...") allocated (only the sscanf frames are on the stack: the library is
//    built without frame pointers);
//  - libuboot_env_store keeps its image buffer when the environment does not fit the image.
// Both are the library's own and happen only on those failures; they are ignored here.
extern "C" __attribute__((used, visibility("default"))) const char *__lsan_default_suppressions() {
  return "leak:libuboot_env_store\n"
         "leak:__isoc99_vsscanf\n";
}
