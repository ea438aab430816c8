// SPDX-License-Identifier: MIT
// Linked into tests that run under the leak check and load libraries of a window system: lsan.supp can name a library
// only if it is still loaded at exit.
extern "C" __attribute__((visibility("default"))) int dlclose(void *)
{
    return 0;
}
