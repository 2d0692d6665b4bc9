#pragma once

#import <Foundation/Foundation.h>

#include <Block.h>

#include <memory>

namespace VelmoraMobile {

/// A host block copied to the heap for as long as a C++ callback holds it (no ARC here). Nil
/// stays nil. The last holder releases it, on whatever thread that is.
template <typename TBlock>
class RetainedBlock {
public:
    explicit RetainedBlock(TBlock block) : block_(block) {
        if (block_ != nullptr) {
            block_ = Block_copy(block_);
        }
    }
    ~RetainedBlock() {
        if (block_ != nullptr) {
            Block_release(block_);
        }
    }
    RetainedBlock(const RetainedBlock&) = delete;
    RetainedBlock& operator=(const RetainedBlock&) = delete;

    TBlock Get() const { return block_; }

private:
    TBlock block_;
};

template <typename TBlock>
std::shared_ptr<RetainedBlock<TBlock>> RetainBlock(TBlock block) {
    return std::make_shared<RetainedBlock<TBlock>>(block);
}

/// An autorelease pool for the current scope: the core's threads have none of their own.
class ScopedAutoreleasePool {
public:
    ScopedAutoreleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}
    ~ScopedAutoreleasePool() { [pool_ drain]; }
    ScopedAutoreleasePool(const ScopedAutoreleasePool&) = delete;
    ScopedAutoreleasePool& operator=(const ScopedAutoreleasePool&) = delete;

private:
    NSAutoreleasePool* pool_;
};

}  // namespace VelmoraMobile
