#pragma once

#include <array>
#include <bit>
#include <cstddef>

#include "osb/wire_type.h"
#include "osg/attachment.h"

// The format, version 1. All numbers are little-endian, texts are a UInt32 length and their bytes.
//
//   file     = magic, UInt32 version,
//              UInt16 number of classes, classes,
//              UInt32 number of objects, objects
//   class    = text name, UInt16 number of fields, { text name, UInt8 scalar, UInt8 components,
//              UInt8 is_list } each
//   object   = UInt16 class (from 0),
//              attachments unless it is one itself: UInt16 number, then each UInt8 kind and
//                name: text
//                fields: UInt32 number, pairs of texts
//                object: UInt16 binding, reference
//              the fields of its class, as the class' list says
//
// An object stands behind all that it refers to, so that no file can hold a circle; the last one is
// the root. The lists of fields make files readable when classes gain or lose fields: what an older
// file lacks keeps its default, what a later one adds is left out with a warning.
//
// Written and read by hand and not through an archive library: those size containers by counts that
// stand in the file before they look whether so much can follow, know no byte offsets to report,
// and copy each block through a stream.
namespace osg::osb {

static_assert(std::endian::native == std::endian::little, "values are written as they lie");

/// The bytes that follow the name get damaged by transfers that take the file for text.
inline constexpr std::array<char, 8> kMagic = {'\x89', 'O', 'S', 'B', '\r', '\n', '\x1a', '\n'};
inline constexpr UInt32 kVersion = 1;

/// Far above what anybody attaches; look-up in a container is linear.
inline constexpr UInt16 kMaxAttachments = 4096;

enum class AttachmentKind : UInt8 { Name = 1, Fields = 2, Object = 3 };

}  // namespace osg::osb
