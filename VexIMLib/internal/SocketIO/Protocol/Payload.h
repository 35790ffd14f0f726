#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/internal/SocketIO/Protocol/EnginePacket.h"

namespace vexim {

/// The revision of the first polling answer, by its form; nullopt if it matches none.
std::optional<EngineRevision> detectRevision(std::string_view firstBody);

/// Reads the packets of one polling answer, which must outlive it.
///
///     PayloadReader reader(revision, body);
///     while (auto packet = reader.next()) { … }
///     if (reader.failed()) …  // what came before the fault was sound
class PayloadReader {
public:
    PayloadReader(EngineRevision revision, std::string_view body);

    /// The next packet; nullopt at the end or at an error. An empty body is an error.
    std::optional<EnginePacketView> next();
    bool failed() const noexcept { return failed_; }

private:
    std::optional<EnginePacketView> fail();
    std::optional<EnginePacketView> nextCounted();
    std::optional<EnginePacketView> nextOctets();
    std::optional<EnginePacketView> nextSeparated();

    const EngineRevision revision_;
    const bool octets_;  // revision 3's binary form
    std::string_view rest_;
    bool finished_ = false;
    bool failed_ = false;
};

/// Collects packets, each given as text, for the body of one POST.
class PayloadWriter {
public:
    explicit PayloadWriter(EngineRevision revision) : revision_(revision) {}

    void add(std::string_view packet);
    /// The length of the body if `packet` were added.
    std::size_t sizeWith(std::string_view packet) const;
    bool empty() const noexcept { return body_.empty(); }
    std::string take();

private:
    const EngineRevision revision_;
    std::string body_;
};

/// The bytes that hold the first `units` UTF-16 code units of `utf8`; nullopt if it is shorter, if
/// they end inside a surrogate pair, or if the bytes are not UTF-8.
std::optional<std::size_t> bytesOfUtf16Units(std::string_view utf8, std::size_t units);
/// The length of well-formed UTF-8 in UTF-16 code units.
std::size_t utf16Length(std::string_view utf8) noexcept;

}  // namespace vexim
