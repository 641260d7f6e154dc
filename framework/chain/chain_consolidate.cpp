// A chain's final image written as one full piece: every piece's reader stays open from
// its first segment to its last, so the image is written in order and each record is
// still read once (a record's segments come in image order, and the reader keeps the
// last record it read).
#include <ace/Log_Msg.h>

#include <functional>
#include <memory>
#include <vector>

#include "framework/chain/chain_io_internal.h"
#include "framework/chain/chain_plan.h"
#include "framework/chain/chain_restore.h"
#include "framework/client_io/image_block_writer.h"


namespace {

bool write_image(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                 Image_Block_Writer& w, const std::string& piece_name,
                 const Chain_Callbacks& callbacks, Chain_Totals& totals) {
  const std::vector<Chain_Link>& links = chain.links();
  const Chain_Link& newest = chain.newest();
  const uint32_t block_size = newest.layout.header.block_size;
  bool ok;
  if (newest.layout.header.version == 1) {
    ok = w.begin(chain.image_size(), block_size);
  } else {
    piece::Identity id = newest.layout.identity;
    id.piece_id = piece::Piece_Id{};
    id.base_piece_id = piece::Piece_Id{};
    id.base_piece_name.clear();
    id.base_snapshot_id.clear();
    id.base_snapshot_name.clear();
    id.base_image_size = 0;
    ok = w.begin(id, block_size);
  }
  if (!ok) return false;  // the writer logged it

  const std::vector<Chain_Segment> plan = plan_chain(chain);
  std::vector<size_t> last_use(links.size(), 0);
  for (size_t i = 0; i < plan.size(); ++i) {
    if (!plan[i].zeros) last_use[plan[i].link] = i;
  }
  std::vector<std::unique_ptr<chain_io::Piece_Source>> sources(links.size());
  chain_io::Progress progress(callbacks, chain.image_size());
  auto release = [&](size_t l) {
    sources[l]->close();
    totals.piece_bytes_read += sources[l]->bytes_read();
    sources[l].reset();
  };
  struct Closer {  // on any way out, every reader still open is counted and closed
    std::function<void()> f;
    ~Closer() { f(); }
  } closer{[&] {
    for (size_t l = 0; l < sources.size(); ++l) {
      if (sources[l]) release(l);
    }
  }};
  for (size_t i = 0; i < plan.size(); ++i) {
    const Chain_Segment& s = plan[i];
    if (progress.cancelled()) {
      ACE_ERROR((LM_ERROR, "Cancelled consolidation of chain '%s' into piece '%s'\n",
                 loggable(newest.name).c_str(), loggable(piece_name).c_str()));
      return false;
    }
    if (s.zeros) {
      if (!w.append_zeros(s.offset, s.length)) return false;
      totals.zero_bytes += s.length;
    } else {
      if (!sources[s.link]) {
        sources[s.link].reset(new chain_io::Piece_Source());
        if (!sources[s.link]->open(connect, links[s.link])) return false;
      }
      const unsigned char* plain = nullptr;
      if (!sources[s.link]->record(s.record, plain)) return false;
      if (!w.append(s.offset, plain + s.record_offset, static_cast<size_t>(s.length))) {
        return false;
      }
      totals.data_bytes += s.length;
      if (last_use[s.link] == i) release(s.link);
    }
    progress.add(s.length);
  }
  return w.finish();
}

}  // namespace

bool consolidate_chain(const Piece_Chain& chain, const Piece_Chain::Connect& connect,
                       Client_IO_Base& out, const std::string& piece_name,
                       const Chain_Callbacks& callbacks, Chain_Totals* totals) {
  if (chain.links().empty()) {
    ACE_ERROR((LM_ERROR, "Cannot consolidate into piece '%s': the chain holds no piece\n",
               loggable(piece_name).c_str()));
    return false;
  }
  if (!out.open(piece_name, Client_IO_Base::OPEN_WRITE, 0, 0)) {
    ACE_ERROR((LM_ERROR, "Cannot create piece '%s': %s\n", loggable(piece_name).c_str(),
               out.last_error().c_str()));
    return false;
  }
  Chain_Totals t;
  bool ok;
  {
    Image_Block_Writer w(out);
    ok = write_image(chain, connect, w, piece_name, callbacks, t);
  }
  if (!ok) {
    out.abandon();
    return false;
  }
  if (!out.close()) {
    ACE_ERROR((LM_ERROR, "Failed to store piece '%s': %s\n", loggable(piece_name).c_str(),
               out.last_error().c_str()));
    out.abandon();
    return false;
  }
  t.image_size = chain.image_size();
  t.pieces = chain.links().size();
  if (totals != nullptr) *totals = t;
  return true;
}
