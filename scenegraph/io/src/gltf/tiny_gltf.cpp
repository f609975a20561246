// The one translation unit that holds tinygltf's code.
#include <fstream>
#include <sstream>

#define TINYGLTF_IMPLEMENTATION
#include "gltf/tiny_gltf_model.h"
