#pragma once

// Runtime constants (event types and sources, SHARED_STATE_PENDING, event data keys) are set up
// ahead of ordinary static objects, so another file may copy one into a namespace-scope constant
// of its own whatever the link order. The identity constants use a later priority on purpose.
#if defined(__GNUC__) || defined(__clang__)
#define VELMORA_RUNTIME_EARLY_INIT __attribute__((init_priority(150)))
#else
#define VELMORA_RUNTIME_EARLY_INIT
#endif
