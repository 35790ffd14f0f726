#pragma once

#include <string>

namespace vexim::testing {

/// The service that the end-to-end tests run against: the one in Node and the test kit's. They must
/// behave alike.
class ServiceUnderTest {
public:
    virtual ~ServiceUnderTest() = default;
    /// One of each kind and line of Socket.IO servers, "Node2" to "Fake4"; each is started when it
    /// is first needed.
    static ServiceUnderTest& shared(const std::string& name);

    /// "http://127.0.0.1:port"
    virtual const std::string& origin() const = 0;
    /// Restores the initial data and cuts all connections.
    virtual void reset() = 0;
    /// Cuts the connections of `user`.
    virtual void drop(const std::string& user) = 0;
};

}  // namespace vexim::testing
