#include "VexIMLib/internal/Platform/Files/PNG.h"

#include <png.h>

#include <cstring>
#include <vector>

namespace vexim {

Data encodePNG(const Image& image) {
    png_image control;
    std::memset(&control, 0, sizeof control);
    control.version = PNG_IMAGE_VERSION;
    control.format = PNG_FORMAT_RGBA;
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

}  // namespace vexim
