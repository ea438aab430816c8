// SPDX-License-Identifier: MIT
#include <fstream> // which it uses, and includes only with its own access to files

#define TINYGLTF_IMPLEMENTATION
#include "GltfLibrary.h"
