// SPDX-License-Identifier: MIT
// Linked into tests that run under the leak check and load a window system's libraries: a library that is still there at
// exit can be named in lsan.supp, one that was unloaded cannot.
extern "C" __attribute__((visibility("default"))) int dlclose(void *)
{
    return 0;
}
