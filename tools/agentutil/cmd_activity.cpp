// agentutil activity: create, update and show a job's memory-mapped activity record.
#include <fcntl.h>

#include <iostream>
#include <map>

#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "utils/agent/agent_job_activity_handle.h"

namespace {

const std::map<std::string, Job_State>& state_names() {
  static const std::map<std::string, Job_State> names = {
      {"NONE", JOB_STATE_NONE}, {"IDLE", JOB_STATE_IDLE}, {"STARTING", JOB_STATE_STARTING},
      {"RUNNING", JOB_STATE_RUNNING}, {"PAUSING", JOB_STATE_PAUSING}, {"PAUSED", JOB_STATE_PAUSED},
      {"COMPLETING", JOB_STATE_COMPLETING}, {"COMPLETED", JOB_STATE_COMPLETED},
      {"CANCELING", JOB_STATE_CANCELING}, {"CANCELED", JOB_STATE_CANCELED},
      {"ERROR", JOB_STATE_ERROR}, {"CREATED", JOB_STATE_CREATED}, {"UPDATED", JOB_STATE_UPDATED},
      {"DELETING", JOB_STATE_DELETING}, {"DELETED", JOB_STATE_DELETED},
      {"COMPLETED_WITH_ERRORS", JOB_STATE_COMPLETED_WITH_ERRORS},
      {"DISPATCHING", JOB_STATE_DISPATCHING}, {"SKIPPED", JOB_STATE_SKIPPED},
      {"EXPIRED", JOB_STATE_EXPIRED}, {"DISABLED", JOB_STATE_DISABLED},
      {"ABORTING", JOB_STATE_ABORTING}, {"CREATING", JOB_STATE_CREATING},
      {"SYNCING", JOB_STATE_SYNCING}, {"SWITCHING", JOB_STATE_SWITCHING},
      {"ACTIVATING", JOB_STATE_ACTIVATING}, {"OPENING", JOB_STATE_OPENING}};
  return names;
}

std::string state_name(int32_t state) {
  for (const auto& [name, value] : state_names())
    if (value == state) return name;
  return std::to_string(state);
}

struct Activity_Args {
  std::string name;
  std::string state;
  int32_t progress = -1;
  int32_t code = 0;
  uint64_t size = 0, processed = 0, speed = 0;
};

int update_record(const Activity_Args& a) {
  Agent_Job_Activity_Handle h;
  if (h.open(a.name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC) != 0)
    return cli::fail("cannot open activity record '" + a.name + "'");
  if (!a.state.empty()) h->state = state_names().at(a.state);
  if (a.progress >= 0) h->progress = a.progress;
  if (a.size) h->size = a.size;
  if (a.processed) h->processed_size = a.processed;
  if (a.speed) h->speed = a.speed;
  h->code = a.code;
  h.sync();
  std::cout << "updated " << h.filename() << "\n";
  return 0;
}

int show_record(const Activity_Args& a) {
  Agent_Job_Activity_Handle h;
  if (h.open(a.name.c_str(), O_RDONLY | O_CLOEXEC) != 0)
    return cli::fail("cannot open activity record '" + a.name + "'");
  const Job_Activity& r = *h.get();
  if (cli::options().json) {
    cli::print_json(json_spirit::Object{{"file", h.filename()},
                                        {"state", state_name(r.state)},
                                        {"progress", r.progress},
                                        {"size", r.size},
                                        {"processed_size", r.processed_size},
                                        {"speed", r.speed},
                                        {"code", r.code}});
    return 0;
  }
  cli::print_fields({{"file", h.filename()},
                     {"state", state_name(r.state)},
                     {"progress", std::to_string(r.progress) + "%"},
                     {"size", cli::size_text(r.size)},
                     {"processed", cli::size_text(r.processed_size)},
                     {"speed", cli::size_text(r.speed) + "/s"},
                     {"code", std::to_string(r.code)}});
  return 0;
}

}  // namespace

void add_activity_commands(CLI::App& app) {
  static Activity_Args args;
  CLI::App* act = app.add_subcommand("activity", "Job activity records of this agent");
  act->require_subcommand(1);

  CLI::App* update = act->add_subcommand("update", "Create or update a record");
  update->add_option("name", args.name, "Record file name")->required();
  std::vector<std::string> states;
  for (const auto& kv : state_names()) states.push_back(kv.first);
  update->add_option("--state", args.state, "Job state")->check(CLI::IsMember(states));
  update->add_option("--progress", args.progress, "Progress in percent")->check(CLI::Range(0, 100));
  update->add_option("--size", args.size, "Total bytes of the job");
  update->add_option("--processed", args.processed, "Bytes processed so far");
  update->add_option("--speed", args.speed, "Current rate in bytes per second");
  update->add_option("--code", args.code, "Result or error code");
  cli::set_command(update, [] { return update_record(args); });

  CLI::App* show = act->add_subcommand("show", "Show a record through a read-only mapping");
  show->add_option("name", args.name, "Record file name")->required();
  cli::set_command(show, [] { return show_record(args); });
}
