#include "VexIMLib/internal/Platform/Files/PNG.h"

#include <png.h>

#include <cstring>
#include <utility>
#include <vector>

namespace vexim {
namespace {

constexpr std::uint64_t kMostPixels =
    64'000'000;  // a small file can claim to be a picture of gigabytes

png_image rgba() {
    png_image control;
    std::memset(&control, 0, sizeof control);
    control.version = PNG_IMAGE_VERSION;
    control.format = PNG_FORMAT_RGBA;
    return control;
}

}  // namespace

Data encodePNG(const Image& image) {
    png_image control = rgba();
    control.width = image.width();
    control.height = image.height();
    // With an upper bound for the size we need not encode twice.
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(control);
    std::vector<std::uint8_t> png(size);
    const int fine = png_image_write_to_memory(&control, png.data(), &size, 0,
                                               image.pixels().data(), 0, nullptr);
    png_image_free(&control);
    if (!fine) return {};
    return Data(png.data(), size);
}

std::optional<Image> decodePNG(const Data& png) {
    png_image control = rgba();
    if (!png_image_begin_read_from_memory(&control, png.bytes(), png.size())) return std::nullopt;
    control.format = PNG_FORMAT_RGBA;
    if (std::uint64_t{control.width} * control.height > kMostPixels) {
        png_image_free(&control);
        return std::nullopt;
    }
    std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(control));
    const int fine = png_image_finish_read(&control, nullptr, pixels.data(), 0, nullptr);
    png_image_free(&control);
    // A warning means that libpng had to repair the picture; accept only intact ones.
    if (!fine || PNG_IMAGE_FAILED(control)) return std::nullopt;
    return Image::fromPixels(control.width, control.height, std::move(pixels));
}

}  // namespace vexim
