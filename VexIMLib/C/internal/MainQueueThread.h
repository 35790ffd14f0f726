#pragma once

namespace vexim::c {

/// Whether the process was forked after the library had started. Such a child may not use the
/// library.
bool isForkedChild() noexcept;

/// Makes sure that a thread of ours runs the main queue. False if the process is exiting or has no
/// more threads.
bool startMainQueueThread();

}  // namespace vexim::c
