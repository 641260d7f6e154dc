// agentutil piece: backup pieces in a storage pool (file:///dir, s3://host:port/bucket),
// reached as pool_connection.h says.
#include <iostream>

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
  std::string piece;  // or the listing prefix
  std::string options_file;
};

// Connected, and with `a.piece` open for reading unless `open_piece` is false.
bool open_pool(const Piece_Args& a, Client_IO_Ex& io, bool open_piece) {
  if (!cli::connect_pool(a.pool, a.options_file, io)) return false;
  if (open_piece && !io.open(a.piece, Client_IO_Base::OPEN_READ, 0, 0)) {
    return cli::fail("cannot open piece " + a.piece + ": " + io.last_error()), false;
  }
  return true;
}

int list_pieces(const Piece_Args& a) {
  Client_IO_Ex io;
  std::vector<std::string> names;
  if (!open_pool(a, io, false)) return 1;
  if (!io.list(a.piece, names)) return cli::fail("cannot list " + a.pool + ": " + io.last_error());
  if (cli::options().json) {
    cli::print_json(json_spirit::Array(names.begin(), names.end()));
    return 0;
  }
  cli::Table table({"PIECE"});
  for (const std::string& n : names) table.add({n});
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
        {"stored_bytes", s.stored_bytes}, {"compression_ratio", ratio}});
    return 0;
  }
  char ratio_text[32];
  std::snprintf(ratio_text, sizeof ratio_text, "%.2f", ratio);
  cli::print_fields({{"piece", a.piece},
                     {"format version", std::to_string(l.header.version)},
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
                     {"piece size", cli::size_text(l.piece_size)}});
  return 0;
}

int verify_piece(const Piece_Args& a) {
  Client_IO_Ex layout_io, io;
  Piece_Layout l;
  if (!open_pool(a, layout_io, true) || !open_pool(a, io, true)) return 1;
  if (!Image_Block_Reader::read_layout(&layout_io, l)) return cli::fail("piece " + a.piece + " is damaged");
  const Piece_Summary s = summarize(l);
  const uint64_t total = s.data_bytes + s.zero_bytes;
  uint64_t done = 0;
  bool cancelled = false;
  cli::Progress progress("verifying " + a.piece);
  const bool ok = Image_Block_Reader::read_blocks_align(&io, [&](const void*, size_t n, off_t) {
    done += n;
    cancelled = !progress.update(done, total) || cli::cancel_requested();
    return !cancelled;
  }, 0, true);
  progress.finish();
  if (cancelled) return cli::fail("verification of " + a.piece + " stopped");
  if (!ok) return cli::fail("piece " + a.piece + " is damaged");
  if (cli::options().json) {
    cli::print_json(json_spirit::Object{{"piece", a.piece}, {"ok", true},
                                        {"records", l.records.size()}, {"image_bytes", total},
                                        {"piece_bytes_read", io.bytes_read()}});
  } else {
    std::cout << a.piece << ": " << cli::count_of(l.records.size(), "record") << ", "
              << cli::size_text(total) << " of image checked, OK\n";
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

  CLI::App* verify = piece->add_subcommand("verify", "Check every record of one piece");
  common(verify);
  verify->add_option("piece", args.piece, "Piece name in the pool")->required();
  cli::set_command(verify, [] { return verify_piece(args); });
}
