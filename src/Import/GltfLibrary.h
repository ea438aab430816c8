// SPDX-License-Identifier: MIT
#pragma once

// tinygltf, compiled into this library: no other file includes its header, so that all see the same settings. The symbols stay
// hidden. Other libraries, libdraco among them, export a tinygltf of another layout; a shared one would be mixed up with these.
//
// It reads no files, and no images: GltfFile does, under the limits of an import.
#define TINYGLTF_NO_FS
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE

#include <tiny_gltf.h>
