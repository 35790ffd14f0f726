#pragma once

#include <string>

namespace vexim::testing {

/// The service that the end-to-end tests run against: the one in Node, and the test kit's, which
/// must not differ.
class ServiceUnderTest {
public:
    virtual ~ServiceUnderTest() = default;
    /// One of each kind and line of Socket.IO servers, "Node2" to "Fake4"; started when first asked
    /// for.
    static ServiceUnderTest& shared(const std::string& name);

    /// "http://127.0.0.1:port"
    virtual const std::string& origin() const = 0;
    /// Back to its first data, with all connections cut.
    virtual void reset() = 0;
    /// Cuts the connections of `user`.
    virtual void drop(const std::string& user) = 0;
};

}  // namespace vexim::testing
