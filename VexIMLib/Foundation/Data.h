#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

namespace detail {
struct DataRep;
}

/// An immutable sequence of bytes, such as a file's contents or the body of a request. It may be
/// empty, and it has no encoding. A copy shares the bytes and costs nothing, whatever the size.
/// Copies may be used on different threads. No function fails, apart from lack of memory.
///
/// Data cannot be changed: to change bytes, copy them into a vector, and make a new Data from that.
///
///     const vexim::Data data(std::string_view("some bytes"));
///     data.view().substr(0, 4);  // "some"
class VEXIM_EXPORT Data {
public:
    Data() noexcept = default;
    /// Copies `size` bytes from `bytes`. The pointer may be nullptr if `size` is 0. The caller
    /// keeps the original.
    Data(const void* bytes, std::size_t size);
    /// Copies the characters of a text, without a NUL at the end. A NUL inside it is a byte like
    /// any other.
    explicit Data(std::string_view bytes);
    /// Takes over the vector's buffer without a copy, if it is moved in.
    explicit Data(std::vector<std::uint8_t> bytes);
    /// Takes over the string's buffer without a copy. The string is then valid but unspecified.
    static Data fromString(std::string&& bytes);
    /// Takes the bytes out. They are copied unless they came from `fromString` and no other copy of
    /// this object lives. The object is then empty.
    std::string takeString() &&;

    // A copy shares the bytes; the last of the copies to be destroyed frees them. A moved-from
    // object is empty.
    Data(const Data& other) noexcept;
    Data(Data&& other) noexcept;
    Data& operator=(const Data& other) noexcept;
    Data& operator=(Data&& other) noexcept;
    ~Data();

    // Pointers and views are valid as long as this object or a copy of it lives.

    /// The first byte. For no bytes the pointer may be nullptr.
    const std::uint8_t* bytes() const noexcept;
    /// The number of bytes.
    std::size_t size() const noexcept;
    /// Whether there are no bytes.
    bool empty() const noexcept { return size() == 0; }
    /// The bytes as a range, for loops and algorithms.
    std::span<const std::uint8_t> span() const noexcept { return {bytes(), size()}; }
    /// The same bytes as characters. They need not be text, and may contain NUL.
    std::string_view view() const noexcept;

    /// Whether both have the same bytes. Copies are compared in constant time.
    friend VEXIM_EXPORT bool operator==(const Data& a, const Data& b) noexcept;

private:
    friend class Value;
    // The block with the count of its owners and the bytes; nullptr means no bytes.
    detail::DataRep* rep_ = nullptr;
};

}  // namespace vexim
