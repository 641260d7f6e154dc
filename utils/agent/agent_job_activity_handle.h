// The live state of one agent job, published as a fixed 152-byte record at the start
// of a small shared file so that other processes on the host can read it without a
// call. The layout is shared with readers outside this library: every offset is
// pinned below and must never move.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "framework/base/api.h"
#include "framework/base/mem_map_handle.h"

enum Job_Definition_Type : int32_t {
  JOB_DEFINITION_NONE = 0,
  JOB_DEFINITION_BACKUP = 1,
  JOB_DEFINITION_RESTORE = 2,
  JOB_DEFINITION_STANDBY = 3,
  JOB_DEFINITION_STORAGE = 4
};

enum Job_State : int32_t {
  JOB_STATE_NONE = 0,
  JOB_STATE_IDLE = 1,
  JOB_STATE_STARTING = 2,
  JOB_STATE_RUNNING = 3,
  JOB_STATE_PAUSING = 4,
  JOB_STATE_PAUSED = 5,
  JOB_STATE_COMPLETING = 6,
  JOB_STATE_COMPLETED = 7,
  JOB_STATE_CANCELING = 8,
  JOB_STATE_CANCELED = 9,
  JOB_STATE_ERROR = 10,
  JOB_STATE_CREATED = 11,
  JOB_STATE_UPDATED = 12,
  JOB_STATE_DELETING = 13,
  JOB_STATE_DELETED = 14,
  JOB_STATE_COMPLETED_WITH_ERRORS = 15,
  JOB_STATE_DISPATCHING = 16,
  JOB_STATE_SKIPPED = 17,
  JOB_STATE_EXPIRED = 18,
  JOB_STATE_DISABLED = 19,
  JOB_STATE_ABORTING = 20,
  JOB_STATE_CREATING = 21,
  JOB_STATE_SYNCING = 22,
  JOB_STATE_SWITCHING = 23,
  JOB_STATE_ACTIVATING = 24,
  JOB_STATE_OPENING = 25
};

// Where variable data (the message text) lies in the mapping, counted from its start.
struct AGENTUTIL_API JOB_ACT_ADDR {
  uint16_t size;
  uint16_t offset;
};

// Host byte order (little-endian on the agents' platforms). magic and version are
// the writer's business; this library only maps the bytes.
struct AGENTUTIL_API Job_Activity {
  uint32_t magic;
  uint32_t version;
  unsigned char id[16];      // binary UUID of the run
  unsigned char def_id[16];  // binary UUID of the job definition
  unsigned char uid[16];     // further binary UUID of the run
  Job_Definition_Type type;
  bool enabled;
  Job_State state;
  int64_t last_run_time;  // time_t seconds since 1970
  int64_t next_run_time;
  int64_t start_time;
  uint64_t size;
  uint64_t set_size;
  uint64_t set_storage_size;
  int32_t progress;
  uint64_t processed_size;
  uint64_t speed;
  int32_t code;
  JOB_ACT_ADDR message;
};

static_assert(sizeof(time_t) == 8, "time fields hold a 64-bit time_t");
static_assert(sizeof(bool) == 1, "enabled is one byte");
static_assert(offsetof(Job_Activity, magic) == 0, "layout");
static_assert(offsetof(Job_Activity, version) == 4, "layout");
static_assert(offsetof(Job_Activity, id) == 8, "layout");
static_assert(offsetof(Job_Activity, def_id) == 24, "layout");
static_assert(offsetof(Job_Activity, uid) == 40, "layout");
static_assert(offsetof(Job_Activity, type) == 56 && sizeof(Job_Definition_Type) == 4, "layout");
static_assert(offsetof(Job_Activity, enabled) == 60, "layout");
static_assert(offsetof(Job_Activity, state) == 64 && sizeof(Job_State) == 4, "layout");
static_assert(offsetof(Job_Activity, last_run_time) == 72, "layout");
static_assert(offsetof(Job_Activity, next_run_time) == 80, "layout");
static_assert(offsetof(Job_Activity, start_time) == 88, "layout");
static_assert(offsetof(Job_Activity, size) == 96, "layout");
static_assert(offsetof(Job_Activity, set_size) == 104, "layout");
static_assert(offsetof(Job_Activity, set_storage_size) == 112, "layout");
static_assert(offsetof(Job_Activity, progress) == 120, "layout");
static_assert(offsetof(Job_Activity, processed_size) == 128, "layout");
static_assert(offsetof(Job_Activity, speed) == 136, "layout");
static_assert(offsetof(Job_Activity, code) == 144, "layout");
static_assert(offsetof(Job_Activity, message) == 148, "layout");
static_assert(offsetof(Job_Activity, message) + offsetof(JOB_ACT_ADDR, offset) == 150, "layout");
static_assert(sizeof(Job_Activity) == 152, "layout");

// Maps "<activity directory>/<name>" (4096 bytes when created with O_CREAT). The
// directory is made with mode 0750 when missing; files get mode 0640. `name` is a
// plain file name: one holding '/' (or "." / "..") is refused, so every activity
// file stays in the agent's directory.
//
// The caller owns the handle; the mapping goes with it, the file stays. One thread
// writes the record; readers (in this or other processes) may see a field mid-update,
// as with any shared mapping without a lock: fields are written one at a time.
class AGENTUTIL_API Agent_Job_Activity_Handle
    : public Mem_Map_Handle<Job_Activity, Agent_Job_Activity_Handle, 4096> {
 public:
  using Mem_Map_Handle::open;

  // The directory template; "$COMPONENT" stands for the agent component.
  static constexpr const char* DIRECTORY_TEMPLATE = "/var/opt/norvane/stavora3/$COMPONENT/act";
  static constexpr unsigned DIRECTORY_MODE = 0750;

  // The directory every activity file of this agent lives in.
  static std::string directory();

  // 0 on success, -1 on failure (logged). `flags` are POSIX open flags.
  int open(const char* name, int flags);
};
