#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/services/DataStoreInterface.h"
#include "runtime/services/LocalStorageServiceInterface.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"

// Helpers shared by the persistence, privacy and push tests. Header-only; test thread only.
namespace VelmoraTest {
namespace IdentityState {

/// The identity data store of the harness's data folder, read directly (not through the module).
inline std::shared_ptr<VelmoraMobile::DataStoreInterface> Store(IdentityHarness& harness) {
    auto storage = harness.services->GetLocalStorageService();
    return storage ? storage->GetDataStore("visitorIDServiceDataStore") : nullptr;
}

/// Dispatches a marker event that nobody but the recorder hears and waits for it: the hub
/// delivers in order, so every event dispatched before this call has been recorded afterwards.
inline void EventBarrier(IdentityHarness& harness) {
    static const auto type = VelmoraMobile::EventType::Get("velmora.test.barrier");
    static const auto source = VelmoraMobile::EventSource::Get("velmora.test.barrier");
    auto marker = VelmoraMobile::EventBuilder("barrier", type, source).Build();
    harness.hub->Dispatch(marker);
    ASSERT_NE(harness.WaitForEvent([&](const std::shared_ptr<VelmoraMobile::Event>& event) { return event == marker; }),
              nullptr);
}

/// The analytics requests recorded so far, each as its context data.
inline std::vector<std::map<std::string, std::string>> PushHits(IdentityHarness& harness) {
    std::vector<std::map<std::string, std::string>> hits;
    for (const auto& event :
         harness.Events(VelmoraMobile::EventType::ANALYTICS, VelmoraMobile::EventSource::REQUEST_CONTENT)) {
        std::map<std::string, std::string> context;
        event->GetData()->GetStringMap("contextdata", context);
        hits.push_back(context);
    }
    return hits;
}

/// The messages that were logged, in order, restricted to those in `wanted`.
inline std::vector<std::string> LinesAmong(const LogCapture& capture, const std::vector<std::string>& wanted) {
    std::vector<std::string> found;
    for (const auto& line : capture.Lines()) {
        for (const auto& message : wanted) {
            if (line.message == message) found.push_back(message);
        }
    }
    return found;
}

}  // namespace IdentityState
}  // namespace VelmoraTest
