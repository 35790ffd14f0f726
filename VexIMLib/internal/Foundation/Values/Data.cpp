#include "VexIMLib/Foundation/Data.h"

#include <cstring>
#include <utility>

#include "VexIMLib/internal/Foundation/Values/Blocks.h"

namespace vexim {

Data::Data(const void* bytes, std::size_t size)
    : Data(std::string_view(static_cast<const char*>(bytes), size)) {}

Data::Data(std::string_view bytes) {
    if (!bytes.empty()) rep_ = new detail::DataRep(std::string(bytes));
}

Data::Data(std::vector<std::uint8_t> bytes) {
    if (!bytes.empty()) rep_ = new detail::DataRep(std::move(bytes));
}

Data Data::fromString(std::string&& bytes) {
    Data data;
    if (!bytes.empty()) data.rep_ = new detail::DataRep(std::move(bytes));
    return data;
}

std::string Data::takeString() && {
    const Data taken(std::move(*this));
    auto* text = taken.rep_ ? std::get_if<std::string>(&taken.rep_->bytes) : nullptr;
    return text && !taken.rep_->isShared() ? std::move(*text) : std::string(taken.view());
}

Data::Data(const Data& other) noexcept : rep_(other.rep_) {
    if (rep_) rep_->retain();
}

Data::Data(Data&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}

Data& Data::operator=(const Data& other) noexcept {
    Data copy(other);
    std::swap(rep_, copy.rep_);
    return *this;
}

Data& Data::operator=(Data&& other) noexcept {
    Data taken(std::move(other));
    std::swap(rep_, taken.rep_);
    return *this;
}

Data::~Data() {
    if (rep_ && rep_->release()) delete rep_;
}

const std::uint8_t* Data::bytes() const noexcept {
    return reinterpret_cast<const std::uint8_t*>(view().data());
}

std::size_t Data::size() const noexcept { return view().size(); }

std::string_view Data::view() const noexcept {
    if (!rep_) return {};
    if (const auto* text = std::get_if<std::string>(&rep_->bytes)) return *text;
    const auto& bytes = *std::get_if<std::vector<std::uint8_t>>(&rep_->bytes);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool operator==(const Data& a, const Data& b) noexcept {
    return a.rep_ == b.rep_ || a.view() == b.view();
}

}  // namespace vexim
