#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "osg/gl_constants.h"
#include "osg/value_container.h"

namespace osg {

class Image;
using ImagePtr = FCPtr<Image>;

/// Pixels of 8 bits a channel: RGB, RGBA, luminance, luminance with alpha, BGR or BGRA.
///
/// Rows stand one below the other without gaps, a pixel's channels side by side. Beyond the first
/// slice of width x height pixels an image may have `depth` slices, a chain of mipmaps (each level
/// half the last in every direction, rounded down, at least 1), frames in time and sides; they
/// follow one another in this nesting, slices innermost. All pixels together take 2^31 - 1 bytes at
/// most.
///
/// Functions that refuse their arguments give false and leave the image as it is. When memory runs
/// out they throw `std::bad_alloc`, and the image is as it was. Pointers to the pixels hold until
/// the next `set`, `scale`, `reformat` or `subImage` that changes the size or format of *that*
/// image.
class OSG_API Image : public ValueContainerClass<"Image", Image, ValueContainer> {
 public:
  static constexpr std::size_t kMaxBytes = 0x7fffffff;

  /// Gives the image its size, format and pixels: a copy of `data`, which may lie in this image, or
  /// zeros if `data` is null. The image always owns its pixels, so `allocate` decides nothing.
  /// Refused: a size or count below 1, more mipmaps than there are levels, another format than the
  /// six, another type than `gl::kUnsignedByte`, more than `kMaxBytes`.
  bool set(UInt32 pixel_format, Int32 width, Int32 height, Int32 depth = 1, Int32 mipmaps = 1,
           Int32 frames = 1, Real32 frame_delay = 0.0f, const UInt8* data = nullptr,
           UInt32 type = gl::kUnsignedByte, bool allocate = true, Int32 sides = 1);
  /// Back to no pixels at all.
  void clear();

  Int32 getWidth() const { return layout_.width; }
  Int32 getHeight() const { return layout_.height; }
  Int32 getDepth() const { return layout_.depth; }
  Int32 getMipMapCount() const { return layout_.mipmaps; }
  Int32 getFrameCount() const { return layout_.frames; }
  Int32 getSideCount() const { return layout_.sides; }
  /// Seconds from frame to frame.
  Real32 getFrameDelay() const { return frame_delay_; }
  UInt32 getPixelFormat() const { return layout_.format; }
  UInt32 getDataType() const { return data_type_; }
  /// Bytes of a pixel, a byte a channel; 0 for an image without pixels.
  UInt32 getBpp() const { return channelsOf(layout_.format); }
  UInt32 getChannels() const { return getBpp(); }
  /// True for the formats with an alpha channel.
  bool hasAlphaChannel() const { return getBpp() == 2 || getBpp() == 4; }
  /// Bytes of all pixels.
  std::size_t getSize() const { return pixels_.size(); }
  bool empty() const { return pixels_.empty(); }

  /// The first pixel byte; null for an image without pixels.
  UInt8* getData() { return pixels_.empty() ? nullptr : pixels_.data(); }
  const UInt8* getData() const { return pixels_.empty() ? nullptr : pixels_.data(); }
  /// Copies `getSize()` bytes from `data`, which may lie in this image; false if it is null or the
  /// image has no pixels.
  bool setData(const UInt8* data);

  /// Scales every slice of the finest level: area average where an axis shrinks, linear between
  /// pixel centres where it grows, no weighting by alpha. A constant image stays exactly constant,
  /// in the time that it takes to write it. The result has no further mipmaps and goes to
  /// `destination`, or replaces this image's pixels if that is null. The same size changes nothing.
  /// Refused: an image without pixels, a size below 1 or too large.
  bool scale(Int32 width, Int32 height, Int32 depth = 1, const ImagePtr& destination = NullFC);

  /// Converts to another of the six formats. Missing alpha becomes 255, alpha that has no place is
  /// dropped, luminance stands for three equal channels; back to luminance the channels count 77,
  /// 150 and 29 of 256, so that grey stays as it is. The same format changes nothing. Refused: an
  /// image without pixels, an unknown format, too many bytes.
  bool reformat(UInt32 pixel_format);

  /// Copies a block of w x h x d pixels of this image's format to (x, y, z) of the finest level of
  /// the first frame and side; what lies outside is left out. `source` must not lie in this image.
  /// False if nothing was copied.
  bool setSubData(Int32 x, Int32 y, Int32 z, Int32 w, Int32 h, Int32 d, const UInt8* source);
  /// Gives `destination` (this image, if null) this format and the pixels of that block. False, and
  /// nothing changed, if the block is empty or doesn't lie within the image.
  bool subImage(Int32 x, Int32 y, Int32 z, Int32 w, Int32 h, Int32 d,
                const ImagePtr& destination = NullFC);

  /// The image's own name, usually a file's; apart from what `osg::setName` gives a container.
  const std::string& getName() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }

  /// Keeps the bytes of the file that the present pixels were decoded from, so that an untouched
  /// image can be written as it came. Operations that change pixels drop them.
  void setEncoded(std::vector<UInt8> bytes, std::string mime_type);
  void dropEncoded();
  const std::vector<UInt8>& getEncoded() const { return encoded_; }
  const std::string& getEncodedMimeType() const { return encoded_mime_type_; }
  /// Whether the kept bytes still stand for the pixels; false without any. Looks at every pixel,
  /// since they can be written through `getData()`.
  bool encodedMatchesPixels() const;
  /// A hash of format, size and pixels; the same in every run.
  UInt64 getContentHash() const;

  /// Channels of a format; 0 if it is none of the six.
  static UInt32 channelsOf(UInt32 pixel_format);

 protected:
  friend ContainerClass<"Image", Image, ValueContainer>;
  Image() = default;
  /// Copies the pixels.
  Image(const Image&) = default;
  ~Image() override = default;

  bool accept_edited_fields() override;

 private:
  friend ValueContainerClass<"Image", Image, ValueContainer>;

  /// How pixels follow one another.
  struct Layout {
    UInt32 format = gl::kNone;
    Int32 width = 0;
    Int32 height = 0;
    Int32 depth = 0;
    Int32 mipmaps = 1;
    Int32 frames = 1;
    Int32 sides = 1;

    bool operator==(const Layout&) const = default;
    bool is_valid() const;
    // Bytes; numbers beyond kMaxBytes may come out as kMaxBytes + 1.
    std::size_t pixel_bytes() const { return channelsOf(format); }
    std::size_t row_bytes() const;
    std::size_t slice_bytes() const;
    std::size_t level_bytes(Int32 level) const;
    std::size_t side_bytes() const;  // one frame's side, all levels
    std::size_t bytes() const;
  };

  // Not public, so that fields are written through `editFields` only, which checks the sizes.
  template <class Self, class Visitor>
  static void visitFields(Self& self, Visitor&& visit) {
    ValueContainer::visitFields(self, visit);
    visit("pixelFormat", self.layout_.format);
    visit("width", self.layout_.width);
    visit("height", self.layout_.height);
    visit("depth", self.layout_.depth);
    visit("mipmaps", self.layout_.mipmaps);
    visit("frames", self.layout_.frames);
    visit("sides", self.layout_.sides);
    visit("frameDelay", self.frame_delay_);
    visit("dataType", self.data_type_);
    visit("name", self.name_);
    visit("pixels", self.pixels_);
    visit("encoded", self.encoded_);
    visit("encodedMimeType", self.encoded_mime_type_);
    visit("encodedHash", self.encoded_hash_);
  }

  void replace_pixels(const Layout& layout, std::vector<UInt8>&& pixels);
  std::vector<UInt8> scaled_pixels(const Layout& target) const;
  void scale_volume(const UInt8* from, const Layout& target, UInt8* to) const;
  bool is_constant() const;

  Layout layout_;
  Real32 frame_delay_ = 0.0f;
  UInt32 data_type_ = gl::kUnsignedByte;
  std::string name_;
  std::vector<UInt8> pixels_;
  std::vector<UInt8> encoded_;
  std::string encoded_mime_type_;
  UInt64 encoded_hash_ = 0;  // of the pixels when encoded_ was set
};
using ImageBase = Image;

}  // namespace osg
