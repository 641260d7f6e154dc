// How every command reaches a storage pool by its URL (file:///dir, s3://host:port/bucket).
// Pool secrets (S3 keys, the encryption key and IV) never come from the arguments: they are
// in a client I/O options file (--options, JSON) or, for S3 keys, the environment
// (AGENTUTIL_S3_ACCESS_KEY, AGENTUTIL_S3_SECRET_KEY).
#pragma once

#include <string>
#include <vector>

#include "framework/chain/piece_chain.h"
#include "framework/client_io/client_io_ex.h"

namespace cli {

// The options of `options_file` (none: the defaults) with the S3 keys of the environment
// where the file gives none. False after printing the failure line.
bool load_client_io_options(const std::string& options_file, Client_IO_Base::Options& options);

// `io` connected to `url`. False after printing the failure line.
bool connect_pool(const std::string& url, const std::string& options_file, Client_IO_Ex& io);

// New connections to `url`, one per call (null after printing the failure line): what a
// chain reads its pieces through.
Piece_Chain::Connect pool_connector(const std::string& url, const std::string& options_file);

// One name: the chain ending at that piece, followed by its base links. Several: an
// explicit chain, oldest first, checked. False after printing the failure line.
bool load_chain(const Piece_Chain::Connect& connect, const std::vector<std::string>& pieces,
                Piece_Chain& chain);

}  // namespace cli
