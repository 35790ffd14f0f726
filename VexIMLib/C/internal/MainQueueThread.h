#pragma once

namespace vexim::c {

/// Whether this process is a child that was forked after the library had started. It may not use
/// the library.
bool isForkedChild() noexcept;

/// Makes sure that a thread of ours runs the main queue. Returns false if the process is exiting or
/// cannot start a thread.
bool startMainQueueThread();

}  // namespace vexim::c
