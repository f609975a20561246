// Images: sizes that are refused, scaling against sums in double, formats, blocks at borders, and
// how long pointers to the pixels hold.

#include "osg/image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <set>

namespace {

using osg::Image;
using osg::ImagePtr;
using osg::UInt32;
using osg::UInt8;
using Bytes = std::vector<UInt8>;

constexpr UInt32 kAllFormats[] = {osg::gl::kRGB,       osg::gl::kRGBA,
                                  osg::gl::kLuminance, osg::gl::kLuminanceAlpha,
                                  osg::gl::kBGR,       osg::gl::kBGRA};

Bytes bytes_of(const ImagePtr& image) {
  return Bytes(image->getData(), image->getData() + image->getSize());
}

Bytes random_bytes(std::mt19937& random, std::size_t count) {
  Bytes bytes(count);
  for (UInt8& byte : bytes) byte = static_cast<UInt8>(random());
  return bytes;
}

ImagePtr make_image(UInt32 format, int w, int h, int d, const Bytes& pixels, int frames = 1,
                    int sides = 1) {
  auto image = Image::create();
  EXPECT_EQ(pixels.size(), std::size_t(w) * h * d * frames * sides * Image::channelsOf(format));
  EXPECT_TRUE(image->set(format, w, h, d, 1, frames, 0.0f, pixels.data(), 5121, true, sides));
  return image;
}

ImagePtr random_image(std::mt19937& random, UInt32 format, int w, int h, int d = 1, int frames = 1,
                      int sides = 1) {
  const std::size_t size = std::size_t(w) * h * d * frames * sides * Image::channelsOf(format);
  return make_image(format, w, h, d, random_bytes(random, size), frames, sides);
}

TEST(Image, SetCopiesOrZeroes) {
  const ImagePtr image = osg::ImageBase::create();
  EXPECT_EQ(image->getWidth(), 0);
  EXPECT_EQ(image->getData(), nullptr);
  EXPECT_EQ(image->getSize(), 0u);

  Bytes pixels{1, 2, 3, 4, 5, 6};
  EXPECT_TRUE(image->set(6407, 2, 1, 1, 1, 1, 0.0, pixels.data(), 5121, true, 1));
  pixels.assign(6, 0);
  EXPECT_EQ(bytes_of(image), (Bytes{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(image->getPixelFormat(), 6407u);
  EXPECT_EQ(image->getDataType(), 5121u);

  EXPECT_TRUE(image->set(6408, 1, 1, 1, 1, 1, 0.0, image->getData() + 1));  // from itself
  EXPECT_EQ(bytes_of(image), (Bytes{2, 3, 4, 5}));
  EXPECT_TRUE(image->set(6410, 3, 3));
  EXPECT_EQ(bytes_of(image), Bytes(18, 0));
  EXPECT_TRUE(image->setData(Bytes(18, 7).data()));
  EXPECT_EQ(bytes_of(image), Bytes(18, 7));
  EXPECT_FALSE(image->setData(nullptr));

  // 5 x 3 x 1, then 2 x 1, then 1 x 1: 18 pixels, for each of two frames and six sides.
  EXPECT_TRUE(image->set(6409, 5, 3, 1, 3, 2, 0.5f, nullptr, 5121, true, 6));
  EXPECT_EQ(image->getSize(), 18u * 2 * 6);
  EXPECT_EQ(image->getFrameDelay(), 0.5f);
}

TEST(Image, RefusesWhatIsNoImage) {
  const ImagePtr image = make_image(6409, 2, 2, 1, {1, 2, 3, 4});
  const UInt8* const data = image->getData();
  const auto refused = [&](UInt32 format, int w, int h, int d, int mips, int frames, int sides,
                           UInt32 type = 5121) {
    return !image->set(format, w, h, d, mips, frames, 0.0f, nullptr, type, true, sides);
  };
  EXPECT_TRUE(refused(6407, 0, 1, 1, 1, 1, 1));
  EXPECT_TRUE(refused(6407, 1, -1, 1, 1, 1, 1));
  EXPECT_TRUE(refused(6407, 1, 1, INT_MIN, 1, 1, 1));
  EXPECT_TRUE(refused(6407, 1, 1, 1, 0, 1, 1));
  EXPECT_TRUE(refused(6407, 4, 4, 1, 4, 1, 1));  // 4, 2, 1: three levels
  EXPECT_TRUE(refused(6407, 4, 4, 1, INT_MAX, 1, 1));
  EXPECT_TRUE(refused(6407, 1, 1, 1, 1, 0, 1));
  EXPECT_TRUE(refused(6407, 1, 1, 1, 1, 1, -6));
  EXPECT_TRUE(refused(6406, 1, 1, 1, 1, 1, 1));
  EXPECT_TRUE(refused(6407, 1, 1, 1, 1, 1, 1, 5123));
  EXPECT_TRUE(refused(6409, 1 << 16, 1 << 15, 1, 1, 1, 1));  // one byte too many
  EXPECT_TRUE(refused(6408, 65536, 65536, 65536, 1, 65536, 65536));
  EXPECT_TRUE(refused(6408, INT_MAX, INT_MAX, INT_MAX, 31, INT_MAX, INT_MAX));
  EXPECT_FALSE(image->scale(0, 2));
  EXPECT_FALSE(image->scale(2, 2, -1));
  EXPECT_FALSE(image->scale(INT_MAX, INT_MAX));
  EXPECT_FALSE(image->reformat(0));
  EXPECT_EQ(image->getData(), data);
  EXPECT_EQ(bytes_of(image), (Bytes{1, 2, 3, 4}));

  const ImagePtr empty = Image::create();
  EXPECT_FALSE(empty->scale(2, 2));
  EXPECT_FALSE(empty->scale(0, 0, 0));
  EXPECT_FALSE(empty->reformat(6407));
  EXPECT_FALSE(empty->setData(data));
  EXPECT_FALSE(empty->setSubData(0, 0, 0, 1, 1, 1, data));
  EXPECT_FALSE(empty->subImage(0, 0, 0, 1, 1, 1, image));
}

TEST(Image, PointersHoldUntilSizeOrFormatChange) {
  std::mt19937 random(1);
  const ImagePtr image = random_image(random, 6408, 8, 4), other = random_image(random, 6407, 8, 4);
  const UInt8* const data = image->getData();
  image->setData(random_bytes(random, 8 * 4 * 4).data());
  image->setSubData(1, 1, 0, 2, 2, 1, random_bytes(random, 16).data());
  image->scale(8, 4);
  image->reformat(6408);
  image->setName("brick.png");
  osg::setName(image, "brick");
  image->setAttachmentField("fileName", "textures/brick.png");
  image->subImage(0, 0, 0, 2, 2, 1, other);
  image->scale(2, 2, 1, other);
  other->reformat(6407);
  image->setEncoded({1, 2, 3}, "image/png");
  EXPECT_EQ(image->getData(), data);
  // Three names, each on its own.
  EXPECT_EQ(image->getName(), "brick.png");
  EXPECT_STREQ(osg::getName(image), "brick");
  EXPECT_EQ(image->getAttachmentField("fileName"), "textures/brick.png");
}

TEST(Image, ConstantStaysConstant) {
  const std::array<UInt8, 4> pixel{0, 255, 127, 1};
  for (const UInt32 format : kAllFormats) {
    const auto channels = Image::channelsOf(format);
    Bytes pixels;
    for (int i = 0; i < 3 * 5; ++i)
      pixels.insert(pixels.end(), pixel.begin(), pixel.begin() + channels);
    for (const int w : {1, 2, 3, 4, 7, 640})
      for (const int h : {1, 4, 5, 6, 333}) {
        const ImagePtr image = make_image(format, 3, 5, 1, pixels);
        ASSERT_TRUE(image->scale(w, h));
        ASSERT_EQ(image->getSize(), std::size_t(w) * h * channels);
        for (std::size_t i = 0; i < image->getSize(); ++i)
          ASSERT_EQ(image->getData()[i], pixel[i % channels]) << w << 'x' << h << " at " << i;
      }
  }
}

/// Even beside a pixel that differs, constant parts stay exact: weights sum up to exactly one.
TEST(Image, ConstantPartsStayConstant) {
  for (int from = 2; from < 60; ++from)
    for (int to = 1; to < 200; to += 1 + to / 8) {
      Bytes pixels(std::size_t(from), 251);
      pixels[0] = 0;
      for (const bool upright : {false, true}) {
        const ImagePtr image = make_image(6409, upright ? 1 : from, upright ? from : 1, 1, pixels);
        ASSERT_TRUE(image->scale(upright ? 1 : to, upright ? to : 1));
        // Pixel 0 is seen up to the centre of the next one.
        const int reach = 3 * to / (2 * from) + 1;
        for (int i = reach; i < to; ++i) ASSERT_EQ(image->getData()[i], 251) << from << ' ' << to;
      }
    }
}

/// Weight of source sample j in sample i of the result, in double: the share of the area where the
/// axis shrinks, a tent around the centre where it grows; edge samples stand for what lies beyond.
double weight_of(int j, int i, int from, int to) {
  const double ratio = double(from) / to;
  if (from > to)
    return std::max(0.0, std::min(j + 1.0, (i + 1) * ratio) - std::max(double(j), i * ratio)) /
           ratio;
  const double centre = std::clamp((i + 0.5) * ratio - 0.5, 0.0, from - 1.0);
  return std::max(0.0, 1.0 - std::abs(centre - j));
}

TEST(Image, ScalingAgreesWithSumsInDouble) {
  for (unsigned seed = 0; seed < 150; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto extent = [&] { return int(random() % 24) + 1; };
    const int w = extent(), h = extent();
    const int to_w = seed % 5 ? extent() : w, to_h = seed % 7 ? extent() : h;
    const UInt32 format = kAllFormats[random() % 6];
    const std::size_t channels = Image::channelsOf(format);
    const ImagePtr image = random_image(random, format, w, h), scaled = Image::create();
    ASSERT_TRUE(image->scale(to_w, to_h, 1, scaled));
    ASSERT_EQ(scaled->getSize(), std::size_t(to_w) * to_h * channels);
    ASSERT_EQ(image->getWidth(), w);  // the source stays

    for (int y = 0; y < to_h; ++y)
      for (int x = 0; x < to_w; ++x)
        for (std::size_t c = 0; c < channels; ++c) {
          double sum = 0;
          for (int row = 0; row < h; ++row)
            for (int column = 0; column < w; ++column)
              sum += weight_of(row, y, h, to_h) * weight_of(column, x, w, to_w) *
                     image->getData()[(std::size_t(row) * w + column) * channels + c];
          const int found = scaled->getData()[(std::size_t(y) * to_w + x) * channels + c];
          ASSERT_NEAR(found, sum, 0.5 + 1e-4) << x << ' ' << y << ' ' << c;  // rounded once
        }
  }
}

TEST(Image, HalvesRoundUp) {
  const ImagePtr image = make_image(6409, 2, 2, 1, {0, 1, 1, 0});
  image->scale(1, 1);
  EXPECT_EQ(bytes_of(image), Bytes{1});
}

TEST(Image, SlicesFramesAndSidesScaleOneByOne) {
  std::mt19937 random(5);
  const ImagePtr image = random_image(random, 6407, 6, 5, 2, 3, 2);
  const Bytes before = bytes_of(image);
  ASSERT_TRUE(image->scale(4, 9, 2));
  Bytes expected;
  for (std::size_t slice = 0; slice < 12; ++slice) {
    const auto begin = before.begin() + std::ptrdiff_t(slice * 6 * 5 * 3);
    const ImagePtr alone = make_image(6407, 6, 5, 1, Bytes(begin, begin + 6 * 5 * 3));
    alone->scale(4, 9);
    const Bytes scaled = bytes_of(alone);
    expected.insert(expected.end(), scaled.begin(), scaled.end());
  }
  EXPECT_EQ(bytes_of(image), expected);

  // Along the depth as along the height.
  for (const int to : {3, 7, 20}) {
    const ImagePtr column = random_image(random, 6408, 1, 7, 1);
    const ImagePtr stack = make_image(6408, 1, 1, 7, bytes_of(column));
    ASSERT_TRUE(column->scale(1, to));
    ASSERT_TRUE(stack->scale(1, 1, to));
    EXPECT_EQ(bytes_of(column), bytes_of(stack));
  }

  const ImagePtr with_levels = Image::create();
  with_levels->set(6409, 4, 4, 1, 3);
  with_levels->getData()[0] = 9;
  EXPECT_TRUE(with_levels->scale(2, 2));
  EXPECT_EQ(with_levels->getMipMapCount(), 1);
  EXPECT_EQ(with_levels->getSize(), 4u);
}

struct Pixel {
  UInt8 r, g, b, a;
};

/// A pixel of that format as bytes. 18 is what the colour (10, 20, 30) weighs as luminance.
Bytes encode(UInt32 format, Pixel p) {
  const bool grey = p.r == p.g && p.g == p.b;
  const UInt8 luminance = grey ? p.r : 18;
  switch (format) {
    case osg::gl::kRGB:
      return {p.r, p.g, p.b};
    case osg::gl::kRGBA:
      return {p.r, p.g, p.b, p.a};
    case osg::gl::kLuminance:
      return {luminance};
    case osg::gl::kLuminanceAlpha:
      return {luminance, p.a};
    case osg::gl::kBGR:
      return {p.b, p.g, p.r};
    default:
      return {p.b, p.g, p.r, p.a};
  }
}

TEST(Image, ReformatsBetweenAllFormats) {
  for (const UInt32 from : kAllFormats)
    for (const UInt32 to : kAllFormats) {
      SCOPED_TRACE(testing::Message() << from << " to " << to);
      const std::size_t channels = Image::channelsOf(from);
      Pixel pixel = channels <= 2 ? Pixel{40, 40, 40, 77} : Pixel{10, 20, 30, 77};
      Bytes pixels = encode(from, pixel);
      for (const UInt8 byte : encode(from, {200, 200, 200, 5})) pixels.push_back(byte);
      const ImagePtr image = make_image(from, 2, 1, 1, pixels);
      ASSERT_TRUE(image->reformat(to));
      EXPECT_EQ(image->getPixelFormat(), to);

      const bool has_alpha = channels % 2 == 0;
      Bytes expected = encode(to, {pixel.r, pixel.g, pixel.b, has_alpha ? pixel.a : UInt8(255)});
      for (const UInt8 byte : encode(to, {200, 200, 200, has_alpha ? UInt8(5) : UInt8(255)}))
        expected.push_back(byte);
      EXPECT_EQ(bytes_of(image), expected);
    }
  Bytes greys;
  for (int grey = 0; grey < 256; ++grey) greys.push_back(static_cast<UInt8>(grey));
  const ImagePtr image = make_image(6409, 256, 1, 1, greys);
  image->reformat(6407);
  image->reformat(6409);
  EXPECT_EQ(bytes_of(image), greys);
}

/// Blocks that lie within the image, over its border or beside it, byte by byte.
TEST(Image, SubDataIsClipped) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int w = int(random() % 5) + 1, h = int(random() % 5) + 1, d = int(random() % 3) + 1;
    const ImagePtr image = random_image(random, 6407, w, h, d);
    const int bw = int(random() % 8), bh = int(random() % 8), bd = int(random() % 4);
    const auto start = [&] { return int(random() % 12) - 6; };
    const int x = start(), y = start(), z = start() / 3;
    const std::size_t size = std::size_t(bw) * bh * bd * 3;
    const auto block = std::make_unique<UInt8[]>(size);  // exact size: reading on is an error
    const Bytes block_bytes = random_bytes(random, size);
    std::copy(block_bytes.begin(), block_bytes.end(), block.get());

    Bytes expected = bytes_of(image);
    bool any = false;
    for (int k = 0; k < bd; ++k)
      for (int j = 0; j < bh; ++j)
        for (int i = 0; i < bw; ++i) {
          if (x + i < 0 || x + i >= w || y + j < 0 || y + j >= h || z + k < 0 || z + k >= d)
            continue;
          any = true;
          for (int c = 0; c < 3; ++c)
            expected[std::size_t(((z + k) * h + y + j) * w + x + i) * 3 + c] =
                block[std::size_t((k * bh + j) * bw + i) * 3 + c];
        }
    EXPECT_EQ(image->setSubData(x, y, z, bw, bh, bd, block.get()), any);
    EXPECT_EQ(bytes_of(image), expected);
  }
  const ImagePtr row = make_image(6409, 3, 1, 1, {1, 2, 3});
  const Bytes source{7, 8, 9, 10, 11};
  EXPECT_TRUE(row->setSubData(-2, 0, 0, INT_MAX, 1, 1, source.data()));
  EXPECT_EQ(bytes_of(row), (Bytes{9, 10, 11}));
  EXPECT_FALSE(row->setSubData(INT_MAX, 0, 0, INT_MAX, 1, 1, source.data()));
  EXPECT_FALSE(row->setSubData(INT_MIN, 0, 0, INT_MAX, 1, 1, source.data()));
  EXPECT_FALSE(row->setSubData(0, 0, 0, -1, -1, 1, source.data()));
  EXPECT_FALSE(row->setSubData(0, 0, 0, 1, 1, 1, nullptr));
}

TEST(Image, SubImageFitsOrFails) {
  std::mt19937 random(3);
  const int w = 4, h = 3, d = 2;
  const ImagePtr image = random_image(random, 6410, w, h, d);
  for (int x = -1; x <= w; ++x)
    for (int y = -1; y <= h; ++y)
      for (int bw = 0; bw <= w + 1; ++bw)
        for (int bh = 0; bh <= h + 1; ++bh) {
          const ImagePtr part = make_image(6409, 1, 1, 1, {42});
          const bool fits = x >= 0 && y >= 0 && bw > 0 && bh > 0 && x + bw <= w && y + bh <= h;
          ASSERT_EQ(image->subImage(x, y, 1, bw, bh, 1, part), fits);
          if (!fits) {
            ASSERT_EQ(bytes_of(part), Bytes{42});
            continue;
          }
          ASSERT_EQ(part->getPixelFormat(), 6410u);
          ASSERT_EQ(part->getWidth(), bw);
          // Put back in its place it changes nothing; anywhere else it would.
          const Bytes before = bytes_of(image);
          ASSERT_TRUE(image->setSubData(x, y, 1, bw, bh, 1, part->getData()));
          ASSERT_EQ(bytes_of(image), before);
        }
  EXPECT_FALSE(image->subImage(1, 0, 0, INT_MAX, 1, 1));
  const UInt8 last = image->getData()[image->getSize() - 1];
  EXPECT_TRUE(image->subImage(w - 1, h - 1, d - 1, 1, 1, 1));  // no destination: cut in place
  EXPECT_EQ(image->getSize(), 2u);
  EXPECT_EQ(image->getData()[1], last);
}

TEST(Image, EncodedBytesNeverOutliveTheirPixels) {
  const Bytes file{0x89, 'P', 'N', 'G'};
  const auto encoded_image = [&] {
    ImagePtr image = make_image(6409, 2, 2, 1, {1, 2, 3, 4});
    image->setEncoded(file, "image/png");
    return image;
  };
  const ImagePtr image = encoded_image();
  EXPECT_TRUE(image->encodedMatchesPixels());
  EXPECT_EQ(image->getEncoded(), file);
  EXPECT_TRUE(Image::dcast(image->shallowCopy())->encodedMatchesPixels());
  image->scale(2, 2);
  EXPECT_TRUE(image->encodedMatchesPixels());

  image->getData()[3] = 5;  // written past the image's back
  EXPECT_FALSE(image->encodedMatchesPixels());
  image->getData()[3] = 4;
  EXPECT_TRUE(image->encodedMatchesPixels());

  const UInt8 byte = 0;
  const std::vector<std::function<void(Image&)>> edits{
      [](Image& i) { i.set(6409, 2, 2); },
      [](Image& i) { i.scale(1, 4); },
      [](Image& i) { i.reformat(6407); },
      [](Image& i) {
        i.setData(Bytes{1, 2, 3, 4}.data());
      },
      [&](Image& i) { i.setSubData(0, 0, 0, 1, 1, 1, &byte); },
      [](Image& i) { i.subImage(0, 0, 0, 1, 2, 1); },
      [](Image& i) { i.dropEncoded(); },
      [](Image& i) { i.clear(); },
  };
  for (std::size_t i = 0; i < edits.size(); ++i) {
    const ImagePtr edited = encoded_image();
    edits[i](*edited);
    EXPECT_FALSE(edited->encodedMatchesPixels()) << "edit " << i;
    EXPECT_TRUE(edited->getEncoded().empty()) << "edit " << i;
    EXPECT_TRUE(edited->getEncodedMimeType().empty()) << "edit " << i;
  }
  EXPECT_FALSE(Image::create()->encodedMatchesPixels());
}

TEST(Image, ContentHashSeesSizeFormatAndEveryPixel) {
  std::mt19937 random(11);
  const Bytes pixels = random_bytes(random, 24);
  std::set<osg::UInt64> hashes{make_image(6409, 24, 1, 1, pixels)->getContentHash(),
                               make_image(6409, 12, 2, 1, pixels)->getContentHash(),
                               make_image(6409, 2, 12, 1, pixels)->getContentHash(),
                               make_image(6409, 1, 2, 12, pixels)->getContentHash(),
                               make_image(6407, 8, 1, 1, pixels)->getContentHash(),
                               make_image(osg::gl::kBGR, 8, 1, 1, pixels)->getContentHash()};
  EXPECT_EQ(hashes.size(), 6u);
  for (std::size_t i = 0; i < 24 * 8; ++i) {
    Bytes flipped = pixels;
    flipped[i / 8] = static_cast<UInt8>(flipped[i / 8] ^ (1 << i % 8));
    EXPECT_TRUE(hashes.insert(make_image(6409, 24, 1, 1, flipped)->getContentHash()).second);
  }
}

/// A reader that writes the fields one by one ends with a whole image or with none.
TEST(Image, EditedFieldsMustAgree) {
  std::mt19937 random(2);
  const ImagePtr source = random_image(random, 6408, 3, 2, 1, 1, 6);
  source->setName("sky");
  source->setEncoded({1, 2}, "image/png");
  const auto read_into = [&](const ImagePtr& image,
                             const std::function<void(const char*, osg::Int32&)>& change) {
    auto fields = source->listFields();
    std::size_t next = 0;
    return osg::editFields(*image, [&](const char* name, auto& value) {
      using Value = std::remove_reference_t<decltype(value)>;
      value = *std::get<const Value*>(fields[next++].value);
      if constexpr (std::is_same_v<Value, osg::Int32>) change(name, value);
    });
  };
  const ImagePtr copy = Image::create();
  EXPECT_TRUE(read_into(copy, [](const char*, osg::Int32&) {}));
  EXPECT_TRUE(osg::equalByValue(source, copy));
  EXPECT_TRUE(copy->encodedMatchesPixels());

  for (const char* const field : {"width", "height", "depth", "mipmaps", "frames", "sides"})
    for (const osg::Int32 wrong : {0, -1, 4, 31, INT_MAX, INT_MIN}) {
      const ImagePtr image = Image::create();
      EXPECT_FALSE(read_into(image,
                             [&](const char* name, osg::Int32& value) {
                               if (name == std::string(field)) value = wrong;
                             }))
          << field << wrong;
      EXPECT_EQ(image->getSize(), 0u);
      EXPECT_EQ(image->getWidth(), 0);
    }
  EXPECT_THROW(osg::editFields(*copy,
                               [](const char* name, auto&) {
                                 if (name == std::string("name")) throw std::bad_alloc();
                               }),
               std::bad_alloc);
  EXPECT_EQ(copy->getSize(), source->getSize());
}

}  // namespace
