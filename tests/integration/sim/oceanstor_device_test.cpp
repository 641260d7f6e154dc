// The host's view of OceanStor mappings: waiting for a device named by its WWN, and the
// simulated array's device files (created on attach with the model's bytes, removed on
// detach, written through to the LUN's chunks and bitmaps).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/integration/sim/oceanstor_fixture.h"
#include "tests/support/temp_dir.h"
#include "utils/agent/oceanstor/mapped_device.h"

using au_test::Log_Capture;

namespace {

constexpr uint64_t CHUNK = 64 * 1024;
constexpr uint64_t LUN_BYTES = 64 * CHUNK;
const std::string WWN = "6A8FFBA1005D00000000000000000042";

class OceanStor_Devices : public au_test::OceanStor_Test {
 protected:
  void SetUp() override {
    OceanStor_Test::SetUp();
    options.dir = dir.path();
    sim.set_device_dir(dir.path());
    sim.add_lun("1", "lun", LUN_BYTES);
    sim.write_chunk("1", 0, "boot");
    sim.write_chunk("1", 3, "kept");  // shared with the snapshot and never written again
    sim.write_chunk("1", 5, "data");
    sim.add_snapshot("2", "snap", "1");
    sim.write_chunk("1", 7, "new");
    sim.add_lun_group("3");
    sim.add_host("4", "host", "3");
  }
  std::string file_bytes(const std::string& path) {
    std::string out(LUN_BYTES + 1, '\0');
    const int fd = ::open(path.c_str(), O_RDONLY);
    const ssize_t n = fd < 0 ? 0 : ::pread(fd, &out[0], out.size(), 0);
    if (fd >= 0) ::close(fd);
    return out.substr(0, n < 0 ? 0 : n);
  }
  std::vector<Block> changed(const std::string* base) {
    std::vector<Block> blocks;
    unsigned long chunk_size = 0;
    EXPECT_TRUE(client->get_changed_blocks("1", base, LUN_BYTES, blocks, chunk_size));
    return blocks;
  }

  au_test::Temp_Dir dir;
  oceanstor::Mapped_Device_Options options;
};

TEST_F(OceanStor_Devices, the_wait_sees_a_late_device_only_once_readable_and_fails_in_one_line) {
  const std::string path = dir / "wwn-0x6a8ffba1005d00000000000000000042";
  std::atomic<bool> filling{false};
  std::thread late([&] {  // empty at first (no sector to read), then filled
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    filling = true;
    EXPECT_EQ(4096, ::pwrite(fd, std::string(4096, 'x').data(), 4096, 0));
    ::close(fd);
  });
  Log_Capture log;
  std::string found;
  options.timeout_ms = 20000;
  EXPECT_TRUE(oceanstor::wait_for_device(options, WWN, found));
  EXPECT_TRUE(filling);  // not while it was empty
  late.join();
  EXPECT_EQ(path, found);
  EXPECT_TRUE(log.records().empty()) << log.dump();

  std::thread remover([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    ::unlink(path.c_str());
  });
  EXPECT_TRUE(oceanstor::wait_for_device_gone(options, WWN));
  remover.join();

  // Never there; a FIFO (which must not hang the probe); present for good; cancelled.
  options.timeout_ms = 50;
  const std::string dir_text = dir.path();
  const std::string never = "Device of WWN '" + WWN + "' did not appear in '" + dir_text + "' within 50 ms.\n";
  EXPECT_FALSE(oceanstor::wait_for_device(options, WWN, found));
  ASSERT_EQ(0, ::mkfifo(path.c_str(), 0644));
  EXPECT_FALSE(oceanstor::wait_for_device(options, WWN, found));
  EXPECT_EQ(2u, log.count(LM_ERROR, never)) << log.dump();
  EXPECT_FALSE(oceanstor::wait_for_device_gone(options, WWN));
  EXPECT_TRUE(log.has(LM_ERROR, "Device of WWN '" + WWN + "' did not go from '" + dir_text + "' within 50 ms.\n"));
  int asked = 0;
  options.timeout_ms = 600000;
  options.cancelled = [&] { return ++asked == 3; };
  EXPECT_FALSE(oceanstor::wait_for_device(options, WWN, found));
  EXPECT_EQ(3, asked);
  EXPECT_TRUE(log.has(LM_ERROR, "Waiting for the device of WWN '" + WWN + "' in '" + dir_text + "' was cancelled.\n"));
  EXPECT_EQ(4u, log.records().size()) << log.dump();
}

TEST_F(OceanStor_Devices, a_hostile_wwn_never_becomes_a_path) {
  const std::string hostile[] = {"../../../etc/passwd", "6a8ffba1005d0000/../../0000000042", "", "6a8ffba1005d",
                                 WWN + "0", "0x6a8ffba1005d00000000000000000042",
                                 std::string("6a8ffba1005d0000\0/x", 19), "6a8ffba1005d0000 000000000000004"};
  for (const std::string& wwn : hostile) {
    Log_Capture log;
    std::string path = "untouched";
    EXPECT_FALSE(oceanstor::mapped_device_path(dir.path(), wwn, path)) << wwn;
    EXPECT_FALSE(oceanstor::wait_for_device(options, wwn, path)) << wwn;
    EXPECT_EQ("untouched", path);
    ASSERT_EQ(2u, log.records().size()) << log.dump();
    EXPECT_EQ(0u, log.records()[0].text.find("Refused WWN '")) << log.dump();
  }
}

TEST_F(OceanStor_Devices, a_mapped_snapshot_is_a_sparse_file_of_its_bytes_until_detached) {
  ASSERT_TRUE(client->attach_snapshot("2", "3"));
  oceanstor::Snapshot snap;
  ASSERT_TRUE(client->get_snapshot("2", snap));
  std::string path;
  ASSERT_TRUE(oceanstor::wait_for_device(options, snap.wwn, path));
  const std::string bytes = file_bytes(path);
  ASSERT_EQ(LUN_BYTES, bytes.size());
  EXPECT_EQ(sim.volume_bytes("2", 0, LUN_BYTES), bytes);
  EXPECT_EQ("bootboot", bytes.substr(CHUNK - 8, 8));
  EXPECT_EQ("datadata", bytes.substr(5 * CHUNK, 8));
  EXPECT_EQ(std::string(CHUNK, '\0'), bytes.substr(7 * CHUNK, CHUNK));  // written after the snapshot
  struct stat st;
  ASSERT_EQ(0, ::stat(path.c_str(), &st));
  EXPECT_LT(static_cast<uint64_t>(st.st_blocks) * 512, LUN_BYTES / 4);

  ASSERT_TRUE(client->detach_snapshot("2", "3"));
  EXPECT_FALSE(au_test::exists(path));
  EXPECT_TRUE(oceanstor::wait_for_device_gone(options, snap.wwn));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));  // nothing left aside either
}

TEST_F(OceanStor_Devices, writes_through_a_mapped_lun_become_its_chunks_and_bitmaps) {
  const std::string base = "2";
  ASSERT_TRUE(client->attach_lun("1", "3"));
  std::string path;
  ASSERT_TRUE(oceanstor::wait_for_device(options, sim.wwn("1"), path));
  const int fd = ::open(path.c_str(), O_WRONLY);
  ASSERT_LE(0, fd);
  EXPECT_EQ(3, ::pwrite(fd, "XYZ", 3, 5 * CHUNK + 10));                              // inside a shared chunk
  EXPECT_EQ(ssize_t(CHUNK), ::pwrite(fd, std::string(CHUNK, 'q').data(), CHUNK, 8 * CHUNK + CHUNK / 2));  // 8 and 9
  EXPECT_EQ(ssize_t(CHUNK), ::pwrite(fd, std::string(CHUNK, '\0').data(), CHUNK, 0));  // "boot" zeroed
  EXPECT_EQ((std::vector<Block>{{0, 1}, {5, 1}, {7, 3}}), changed(&base));
  EXPECT_EQ("datadatadaXYZata", sim.volume_bytes("1", 5 * CHUNK, 16));
  EXPECT_EQ(std::string("qq\0\0", 4), sim.volume_bytes("1", 9 * CHUNK + CHUNK / 2 - 2, 4));

  // Written after the model last looked: taken in at the unmapping.
  EXPECT_EQ(1, ::pwrite(fd, "w", 1, 20 * CHUNK + 7));
  ::close(fd);
  ASSERT_TRUE(client->detach_lun("1", "3"));
  EXPECT_FALSE(au_test::exists(path));
  EXPECT_EQ((std::vector<Block>{{3, 1}, {5, 1}, {7, 3}, {20, 1}}), changed(nullptr));
  EXPECT_EQ(std::string("\0w\0", 3), sim.volume_bytes("1", 20 * CHUNK + 6, 3));
  EXPECT_EQ("datadatadatadata", sim.volume_bytes("2", 5 * CHUNK, 16));  // the snapshot keeps its bytes
}

}  // namespace
