#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

namespace vexim::testing {

/// While this lives, file modes apply to this thread and to those that it starts, even if the user
/// is root. The user stays the same, so its private folders can be used.
class OrdinaryRights {
public:
    OrdinaryRights() {
        call(SYS_capget);
        before_ = data_[0].effective;
        data_[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        call(SYS_capset);
    }
    ~OrdinaryRights() {
        data_[0].effective = before_;
        ::syscall(SYS_capset, &header_, data_);
    }
    OrdinaryRights(const OrdinaryRights&) = delete;
    OrdinaryRights& operator=(const OrdinaryRights&) = delete;

private:
    void call(long function) {
        if (::syscall(function, &header_, data_) != 0) throw std::runtime_error("no capabilities");
    }

    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data_[_LINUX_CAPABILITY_U32S_3]{};
    std::uint32_t before_ = 0;
};

}  // namespace vexim::testing
