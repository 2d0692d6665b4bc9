#include "runtime/bus/EventBuilder.h"

#include <chrono>
#include <cstdio>
#include <random>
#include <utility>

#include "runtime/bus/EventNames.h"

namespace VelmoraMobile {

namespace {

// Pair ids only have to be unique, not secret, so a per-thread generator seeded from the
// system's entropy is enough and keeps event building free of locks.
std::string MakeRandomUuid() {
    thread_local std::mt19937_64 generator([] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }());
    uint64_t high = generator();
    uint64_t low = generator();
    high = (high & 0xFFFFFFFFFFFF0FFFULL) | 0x0000000000004000ULL;  // version 4
    low = (low & 0x3FFFFFFFFFFFFFFFULL) | 0x8000000000000000ULL;    // RFC 4122 variant
    char text[37];
    std::snprintf(text, sizeof(text), "%08x-%04x-%04x-%04x-%012llx", static_cast<unsigned>(high >> 32),
                  static_cast<unsigned>((high >> 16) & 0xFFFF), static_cast<unsigned>(high & 0xFFFF),
                  static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
    return text;
}

}  // namespace

EventBuilder::EventBuilder(const std::string& name, const std::shared_ptr<EventType>& type,
                           const std::shared_ptr<EventSource>& source)
    : name_(EventNames::Intern(name)), type_(type), source_(source) {
    if (name_ == nullptr) {
        own_name_ = name;
    }
}

EventBuilder::EventBuilder(const char* name, const std::shared_ptr<EventType>& type,
                           const std::shared_ptr<EventSource>& source)
    : name_(EventNames::Intern(name != nullptr ? name : "")), type_(type), source_(source) {
    if (name_ == nullptr) {
        own_name_ = name;
    }
}

EventBuilder& EventBuilder::SetData(const std::shared_ptr<EventData>& data) {
    data_ = data;
    return *this;
}

EventBuilder& EventBuilder::SetEventNumber(int32_t number) {
    has_event_number_ = true;
    event_number_ = number;
    return *this;
}

EventBuilder& EventBuilder::SetPairID(const std::string& pair_id) {
    has_pair_id_ = true;
    pair_id_ = pair_id;
    first_paired_.reset();
    return *this;
}

std::shared_ptr<Event> EventBuilder::Build() {
    int64_t now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    std::string pair_id;
    if (!has_pair_id_) {
        pair_id = MakeRandomUuid();
    } else if (first_paired_) {
        pair_id = first_paired_->GetResponsePairID();
    } else {
        pair_id = std::move(pair_id_);
    }
    // Event, control block and data pointer in one allocation; name and pair id are not copied.
    auto event = std::make_shared<Event>(Event::Passkey(), name_, name_ != nullptr ? std::string() : own_name_, type_,
                                         source_, data_, std::move(pair_id), now);
    if (has_pair_id_ && !first_paired_) {
        first_paired_ = event;
    }
    if (has_event_number_) {
        event->has_event_number_ = true;
        event->event_number_.store(event_number_, std::memory_order_relaxed);
    }
    return event;
}

}  // namespace VelmoraMobile
