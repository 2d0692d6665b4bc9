#pragma once

namespace VelmoraMobile {

/// Names the calling thread "velmora-<role>" (cut to the system's 15 characters), so that our
/// threads can be told apart in a debugger, in `top -H` and in tests. Any thread may call it.
void NameThisThread(const char* role);

}  // namespace VelmoraMobile
