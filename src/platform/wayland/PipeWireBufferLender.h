#pragma once

#include "media/VideoFrame.h"
#include "platform/wayland/PipeWireHandles.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

// Lends a PipeWire stream's buffers out as frames that show the buffer's memory, without a copy.
// A buffer lent is not given back to the producer until the last copy of its frame is released
// (on whatever thread); then takeReturned() hands it to the stream to queue. At most a few are
// out at a time, so the producer always has buffers to fill. A frame's memory stays readable for
// as long as the frame lives: shared-memory files are mapped by us, and memory PipeWire mapped
// itself lives until a removal, which waits for the frame, or the stream's end, which leaves the
// stream's objects to the last frame.
// Thread: the stream's capture thread (with the loop's lock held), but for the release of frames.
class PipeWireBufferLender final {
public:
    // The PipeWire objects of a stopped stream. Members go last to first: the stream before its
    // core, context and (stopped) loop.
    struct Remains {
        PipeWireThreadLoop loop;
        PipeWireContext context;
        PipeWireCore core;
        PipeWireRegistry registry;
        PipeWireStream stream;
    };

    PipeWireBufferLender();
    ~PipeWireBufferLender();
    PipeWireBufferLender(const PipeWireBufferLender&) = delete;
    PipeWireBufferLender& operator=(const PipeWireBufferLender&) = delete;

    void addBuffer(pw_buffer* buffer);
    bool isLent(const pw_buffer* buffer) const;
    // Before the buffer's memory goes, a frame still out is waited for, briefly (writers finish
    // a frame in milliseconds); this happens only when the stream's format changes.
    void removeBuffer(pw_buffer* buffer);
    // The buffer's picture of `width` x `height` pixels, rows `stride` bytes apart, as a frame
    // sharing its memory; null when it cannot be lent (memory we cannot keep readable, or
    // enough are out already).
    VideoFrame lend(pw_buffer* buffer, int width, int height, int stride, bool hasAlpha);
    // The buffers whose frames were released since the last call and that the stream still has.
    std::vector<pw_buffer*> takeReturned();
    // At the stream's end: its objects stay until the last lent frame goes (at once when none
    // is out), and its buffers are forgotten.
    void keepUntilReturned(std::unique_ptr<Remains> remains);
    int64_t lentCount() const { return m_lentCount.load(); }

private:
    struct Slot;
    struct Shared;
    struct Lease;
    const Slot* slotOf(const pw_buffer* buffer) const;

    std::shared_ptr<Shared> m_shared; // with every lent frame
    std::vector<std::unique_ptr<Slot>> m_slots;
    uint64_t m_nextID = 1; // tells a buffer from a later one at the same address
    std::atomic<int64_t> m_lentCount{0};
};
