// Says its version and cannot be created.

extern "C" __attribute__((visibility("default"))) int paddock_plugin_interface_version() {
  return 1;
}
