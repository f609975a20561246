#pragma once

// The one way to include tinygltf. It gets to see neither files nor images: those are ours.
#define TINYGLTF_NO_FS
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
#define TINYGLTF_NO_INCLUDE_JSON
#include <nlohmann/json.hpp>
// after its JSON library
#include <tiny_gltf.h>
