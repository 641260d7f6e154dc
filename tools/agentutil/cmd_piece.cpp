// agentutil piece: backup pieces in a storage pool (file:///dir, s3://host:port/bucket),
// reached as pool_connection.h says.
#include <ctime>
#include <iostream>

#include "framework/chain/chain_restore.h"
#include "framework/client_io/client_io_ex.h"
#include "framework/client_io/image_block_reader.h"
#include "tools/agentutil/cancel.h"
#include "tools/agentutil/cli_common.h"
#include "tools/agentutil/output.h"
#include "tools/agentutil/pool_connection.h"
#include "tools/agentutil/progress.h"

namespace {

struct Piece_Args {
  std::string pool;
  std::string piece;  // or the listing prefix; the newest piece of a chain
  std::string options_file;
  std::string merged;  // merge: the new full piece
};

// Connected, and with `a.piece` open for reading unless `open_piece` is false.
bool open_pool(const Piece_Args& a, Client_IO_Ex& io, bool open_piece) {
  if (!cli::connect_pool(a.pool, a.options_file, io)) return false;
  if (open_piece && !io.open(a.piece, Client_IO_Base::OPEN_READ, 0, 0)) {
    return cli::fail("cannot open piece " + a.piece + ": " + io.last_error()), false;
  }
  return true;
}

// "3 min", "2 h", "5 d" since `created` (seconds since the epoch); "-" when unknown.
std::string age_text(uint64_t created) {
  const auto now = static_cast<uint64_t>(std::time(nullptr));
  if (created == 0 || created > now) return "";
  const uint64_t s = now - created;
  if (s < 120) return std::to_string(s) + " s";
  if (s < 7200) return std::to_string(s / 60) + " min";
  if (s < 172800) return std::to_string(s / 3600) + " h";
  return std::to_string(s / 86400) + " d";
}

std::string snapshot_text(const std::string& name, const std::string& id) {
  return name.empty() && id.empty() ? "" : name + " (" + id + ")";
}

// The layout of `name` as a listing shows it: without the key (nothing of the data is
// read), so that a sealed pool can be listed too.
bool peek_layout(Client_IO_Ex& io, const std::string& name, Piece_Layout& l) {
  const bool ok = io.open(name, Client_IO_Base::OPEN_READ, 0, 0) &&
                  Image_Block_Reader::read_layout(&io, l, false);
  io.close();
  return ok;
}

int list_pieces(const Piece_Args& a) {
  Client_IO_Ex io;
  std::vector<std::string> names;
  if (!open_pool(a, io, false)) return 1;
  if (!io.list(a.piece, names)) return cli::fail("cannot list " + a.pool + ": " + io.last_error());
  cli::Table table({"PIECE", "IMAGE", "SNAPSHOT", "BASE", "SIZE", "AGE"});
  json_spirit::Array rows;
  for (const std::string& n : names) {
    Piece_Layout l;
    if (!peek_layout(io, n, l)) {
      table.add({n, "(unreadable)", "", "", "", ""});
      rows.emplace_back(json_spirit::Object{{"piece", n}, {"readable", false}});
      continue;
    }
    const piece::Identity& id = l.identity;
    const std::string image = id.image_name.empty() ? "" : id.pool + "/" + id.image_name;
    const std::string base = id.is_full() ? "(full)" : id.base_piece_name.empty()
                                                          ? snapshot_text(id.base_snapshot_name, id.base_snapshot_id)
                                                          : id.base_piece_name;
    table.add({n, image, snapshot_text(id.snapshot_name, id.snapshot_id), l.header.version == 1 ? "(version 1)" : base,
               cli::size_text(id.image_size), age_text(id.created)});
    rows.emplace_back(json_spirit::Object{{"piece", n}, {"readable", true}, {"version", l.header.version},
                                          {"image", image}, {"snapshot", id.snapshot_name},
                                          {"full", id.is_full()}, {"base_piece", id.base_piece_name},
                                          {"base_snapshot", id.base_snapshot_name},
                                          {"image_size", id.image_size}, {"created", id.created}});
  }
  if (cli::options().json) {
    cli::print_json(rows);
    return 0;
  }
  if (!table.empty()) table.print(std::cout);
  else if (a.piece.empty()) std::cout << "no pieces in " << a.pool << "\n";
  else std::cout << "no pieces starting with '" << a.piece << "' in " << a.pool << "\n";
  return 0;
}

struct Piece_Summary {
  uint64_t data_records = 0, zero_records = 0, data_bytes = 0, zero_bytes = 0, stored_bytes = 0;
};

Piece_Summary summarize(const Piece_Layout& l) {
  Piece_Summary s;
  for (const piece::Record& r : l.records) {
    const bool zeros = r.flags == piece::RECORD_ZEROS;
    (zeros ? s.zero_records : s.data_records) += 1;
    (zeros ? s.zero_bytes : s.data_bytes) += r.length;
    s.stored_bytes += r.stored_length;
  }
  return s;
}

json_spirit::Object identity_json(const piece::Identity& id) {
  return json_spirit::Object{
      {"piece_id", piece::to_hex(id.piece_id)}, {"source_kind", id.source_kind},
      {"cluster", id.cluster}, {"pool", id.pool}, {"image_name", id.image_name},
      {"image_id", id.image_id}, {"snapshot_id", id.snapshot_id},
      {"snapshot_name", id.snapshot_name}, {"image_size", id.image_size},
      {"full", id.is_full()}, {"base_piece_id", id.is_full() ? "" : piece::to_hex(id.base_piece_id)},
      {"base_piece_name", id.base_piece_name}, {"base_snapshot_id", id.base_snapshot_id},
      {"base_snapshot_name", id.base_snapshot_name}, {"base_image_size", id.base_image_size},
      {"chunk_size", uint64_t{id.chunk_size}}, {"created", id.created}};
}

void add_identity_fields(const piece::Identity& id, cli::Fields& f) {
  f.push_back({"piece id", piece::to_hex(id.piece_id)});
  // A piece written without a source (a test's, a tool's) names none of these.
  if (!id.source_kind.empty()) f.push_back({"source", id.source_kind + " " + id.cluster});
  if (!id.image_name.empty()) f.push_back({"image", id.pool + "/" + id.image_name + " (id " + id.image_id + ")"});
  if (!id.snapshot_name.empty()) f.push_back({"snapshot", snapshot_text(id.snapshot_name, id.snapshot_id)});
  if (id.is_full()) {
    f.push_back({"base", "none (a full piece)"});
  } else {
    f.push_back({"base piece", id.base_piece_name.empty() ? "(named by snapshot only)"
                                                          : id.base_piece_name + " (" + piece::to_hex(id.base_piece_id) + ")"});
    f.push_back({"base snapshot", snapshot_text(id.base_snapshot_name, id.base_snapshot_id) + ", " +
                                      cli::size_text(id.base_image_size)});
  }
  if (id.chunk_size) f.push_back({"chunk grid", cli::size_text(id.chunk_size)});
  const std::string age = age_text(id.created);
  if (!age.empty()) f.push_back({"age", age});
}

int piece_info(const Piece_Args& a) {
  Client_IO_Ex io;
  Piece_Layout l;
  if (!open_pool(a, io, true)) return 1;
  if (!Image_Block_Reader::read_layout(&io, l, false)) return cli::fail("piece " + a.piece + " is not readable");
  const Piece_Summary s = summarize(l);
  const double ratio = s.stored_bytes ? double(s.data_bytes) / double(s.stored_bytes) : 0.0;
  const char* compression = compression_method_name(static_cast<Compression_Method>(l.header.compression));
  const char* cipher = encryption_algorithm_name(static_cast<Encryption_Algorithm>(l.header.cipher));
  if (cli::options().json) {
    cli::print_json(json_spirit::Object{
        {"version", l.header.version}, {"image_size", l.header.image_size},
        {"block_size", l.header.block_size}, {"compression", compression},
        {"cipher", cipher}, {"piece_size", l.piece_size},
        {"data_records", s.data_records}, {"zero_records", s.zero_records},
        {"data_bytes", s.data_bytes}, {"zero_bytes", s.zero_bytes},
        {"stored_bytes", s.stored_bytes}, {"compression_ratio", ratio},
        {"identity", identity_json(l.identity)}});
    return 0;
  }
  char ratio_text[32];
  std::snprintf(ratio_text, sizeof ratio_text, "%.2f", ratio);
  cli::Fields fields{{"piece", a.piece}, {"format version", std::to_string(l.header.version)}};
  if (l.header.version >= 2) add_identity_fields(l.identity, fields);
  cli::Fields body{
                     {"image size", cli::size_text(l.header.image_size)},
                     {"block size", cli::size_text(l.header.block_size)},
                     {"compression", compression},
                     {"cipher", cipher},
                     {"records", cli::count_of(s.data_records, "data record") + ", " +
                                     cli::count_of(s.zero_records, "zero record")},
                     {"image bytes", cli::size_text(s.data_bytes + s.zero_bytes) + " (" +
                                         cli::size_text(s.zero_bytes) + " zeros)"},
                     {"stored bytes", cli::size_text(s.stored_bytes)},
                     {"compression ratio", ratio_text},
                     {"piece size", cli::size_text(l.piece_size)}};
  fields.insert(fields.end(), body.begin(), body.end());
  cli::print_fields(fields);
  return 0;
}

// The chain ending at `a.piece`, loaded with the pool's key; false after the failure line.
bool chain_of(const Piece_Args& a, Piece_Chain::Connect& connect, Piece_Chain& chain) {
  connect = cli::pool_connector(a.pool, a.options_file);
  return cli::load_chain(connect, {a.piece}, chain);
}

int verify_chain(const Piece_Args& a) {
  Piece_Chain::Connect connect;
  Piece_Chain chain;
  if (!chain_of(a, connect, chain)) return 1;
  cli::Progress progress("verifying the chain of " + a.piece, cli::Progress::Unit::bytes);
  Chain_Callbacks callbacks;
  callbacks.progress = [&](uint64_t done, uint64_t total) { progress.update(done, total); };
  callbacks.cancel = [] { return cli::cancel_requested(); };
  Chain_Totals t;
  const bool ok = ::verify_chain(chain, connect, callbacks, &t);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("verification of " + a.piece + " stopped");
  if (!ok) return cli::fail("the chain of " + a.piece + " is damaged");
  if (cli::options().json) {
    cli::print_json(json_spirit::Object{{"piece", a.piece}, {"ok", true}, {"pieces", t.pieces},
                                        {"image_size", t.image_size},
                                        {"piece_bytes_read", t.piece_bytes_read}});
  } else {
    std::cout << a.piece << ": " << cli::count_of(t.pieces, "piece") << " checked, "
              << cli::size_text(t.piece_bytes_read) << " read, OK\n";
  }
  return 0;
}

int merge_chain(const Piece_Args& a) {
  Piece_Chain::Connect connect;
  Piece_Chain chain;
  Client_IO_Ex out;
  if (!chain_of(a, connect, chain) || !open_pool(a, out, false)) return 1;
  cli::Progress progress("merging into " + a.merged, cli::Progress::Unit::bytes);
  Chain_Callbacks callbacks;
  callbacks.progress = [&](uint64_t done, uint64_t total) { progress.update(done, total); };
  callbacks.cancel = [] { return cli::cancel_requested(); };
  Chain_Totals t;
  const bool ok = consolidate_chain(chain, connect, out, a.merged, callbacks, &t);
  progress.finish();
  if (cli::cancel_requested()) return cli::fail("cancelled; no piece was stored");
  if (!ok) return cli::fail("merge of the chain of " + a.piece + " failed; no piece was stored");
  if (cli::options().json) {
    cli::print_json(json_spirit::Object{{"piece", a.merged}, {"from", a.piece}, {"pieces", t.pieces},
                                        {"image_size", t.image_size}, {"data_bytes", t.data_bytes},
                                        {"zero_bytes", t.zero_bytes}});
  } else {
    cli::print_fields({{"piece", a.merged},
                       {"merged", cli::count_of(t.pieces, "piece") + " ending at " + a.piece},
                       {"image size", cli::size_text(t.image_size)},
                       {"data", cli::size_text(t.data_bytes)},
                       {"zeros", cli::size_text(t.zero_bytes)}});
  }
  return 0;
}

}  // namespace

void add_piece_commands(CLI::App& app) {
  static Piece_Args args;
  CLI::App* piece = app.add_subcommand("piece", "Backup pieces in a storage pool");
  piece->require_subcommand(1);
  piece->add_option("--options", args.options_file,
                    "Client I/O options (JSON): S3 keys, encryption key and IV, time-outs");
  const auto common = [](CLI::App* cmd) {
    cmd->add_option("pool", args.pool, "Pool URL: file:///dir, s3://host:port/bucket, s3s://...")->required();
  };
  CLI::App* ls = piece->add_subcommand("ls", "List the pieces of a pool");
  common(ls);
  ls->add_option("prefix", args.piece, "Only names starting with this");
  cli::set_command(ls, [] { return list_pieces(args); });

  CLI::App* info = piece->add_subcommand("info", "Header and records of one piece");
  common(info);
  info->add_option("piece", args.piece, "Piece name in the pool")->required();
  cli::set_command(info, [] { return piece_info(args); });

  CLI::App* verify = piece->add_subcommand("verify", "Check every record of the chain ending at a piece");
  common(verify);
  verify->add_option("piece", args.piece, "Newest piece of the chain")->required();
  cli::set_command(verify, [] { return verify_chain(args); });

  CLI::App* merge = piece->add_subcommand("merge", "Merge the chain ending at a piece into one new full piece");
  common(merge);
  merge->add_option("piece", args.piece, "Newest piece of the chain")->required();
  merge->add_option("--to", args.merged, "Name of the new full piece")->required();
  cli::set_command(merge, [] { return merge_chain(args); });
}
