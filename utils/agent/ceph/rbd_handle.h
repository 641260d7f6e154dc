// Everything done on an open librbd image handle, in one place. Ceph_Image (the head) and
// Ceph_Snapshot (an image opened at a snapshot, and its static forms over any context) call
// these; the pool, the image and the group open handles through open_image/open_snapshot
// instead of building each other.
//
// Each function takes the shared handles of its caller (`ctx.img_ctx_` open, or the pool's
// `ctx.io_ctx_` for the openers), logs one line per failure and leaves the context as it was.
// Callers own the contexts; one thread at a time per context, as librbd serialises an image.
#pragma once

#include <cstdint>
#include <string>

#include "framework/base/basic_string_arg.h"
#include "utils/agent/block.h"
#include "utils/agent/ceph/ceph_context.h"
#include "utils/agent/ceph/ceph_records.h"
#include "utils/agent/ceph/ceph_snapshot.h"

namespace ceph {

class Ceph_Image;

namespace rbd_handle {

// ---- Opening, on a pool's context (`pool.io_ctx_`) ----

// The image head, with the pool's messages. A read-only open skips the header watch, so it
// never makes the image busy for a writer or a remover.
bool open_image(const Ceph_Context& pool, const std::string& pool_name, const std::string& name,
                bool read_only, Ceph_Image& image);
// The image at `snap_name`; `error`, when given, receives librbd's result of the open.
bool open_snapshot(const Ceph_Context& pool, const std::string& pool_name,
                   const std::string& img_name, const std::string& snap_name, bool read_only,
                   Ceph_Snapshot& snap, int* error);

// ---- On an open image or snapshot (`ctx.img_ctx_`) ----

// `cb` follows the stop rule of Diff_Callback.
bool diff_iterate(const Ceph_Context& ctx, Basic_String_Arg<char> from_snap,
                  const Diff_Callback& cb, uint64_t offset, uint64_t length, bool include_parent,
                  bool whole_object);
// The extents of objects that hold data, the parent's included, sorted and merged. False
// when librbd cannot say (quietly without rbd_diff_iterate2, else after the walk's line);
// `blocks` is then not to be trusted.
bool allocated_extents(const Ceph_Context& ctx, Blocks& blocks);
bool get_changed_blocks(const Ceph_Context& ctx, Basic_String_Arg<char> from_snap, Blocks& blocks,
                        int power_of_2, Range range, bool ignore_file_hole,
                        const Cancel_Callback& cancel_callback, bool include_parent,
                        bool whole_object);

int read(const Ceph_Context& ctx, uint64_t offset, uint64_t length, char* buf, int op_flags);
int write(const Ceph_Context& ctx, uint64_t offset, uint64_t length, const char* buf, int op_flags);
// Zeroes [offset, offset + length) of any length, so that the range reads back as zeros
// (rbd_write_zeroes, else written zeros: a discard may leave partial objects as they were).
// The byte count or the first negative errno.
int64_t zero_range(const Ceph_Context& ctx, uint64_t offset, uint64_t length, int op_flags);
bool flush(const Ceph_Context& ctx);
// Takes the image's exclusive lock now and holds it until the image closes, where librbd
// would take it at the first write. 0 when held or when there is none to take (no
// exclusive-lock feature, or a librbd without rbd_lock_acquire); else librbd's negative
// errno, -EROFS at once when another client holds the lock explicitly. One that took it by
// writing hands it over; a dead one's is broken once the OSD drops its watch (its
// osd_client_watch_timeout, 30 s by default), which this call waits for.
int lock_exclusive(const Ceph_Context& ctx);
// True when librbd copies the bytes of a write before the call returns (the image's
// rbd_disable_zero_copy_writes, true by default), so the caller may reuse its buffer at
// once even for an asynchronous write. False when it does not or cannot be told.
bool writes_are_copied(const Ceph_Context& ctx);

bool stat(const Ceph_Context& ctx, Snapshot_Stat& stat);
uint64_t size(const Ceph_Context& ctx);
bool get_features(const Ceph_Context& ctx, uint64_t& features);
int update_features(const Ceph_Context& ctx, uint64_t features, bool enabled);
uint64_t get_stripe_unit(const Ceph_Context& ctx);
uint64_t get_stripe_count(const Ceph_Context& ctx);
std::string get_block_name_prefix(const Ceph_Context& ctx);
bool get_group(const Ceph_Context& ctx, Group_Info& group);

}  // namespace rbd_handle
}  // namespace ceph
