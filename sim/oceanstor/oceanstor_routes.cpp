// The device manager's resources as the simulator models them.
#include <algorithm>
#include <cstdlib>

#include "framework/base/hex_string.h"
#include "framework/json/reader.h"
#include "sim/oceanstor/oceanstor_sim.h"

namespace au_sim {

namespace {

constexpr int LUN_TYPE = 11;
constexpr int HOST_TYPE = 21;
constexpr int SNAPSHOT_TYPE = 27;
constexpr int HOST_LINK_TYPE = 255;
constexpr uint64_t MAX_SEGMENT_BYTES = 2147483648ULL;
constexpr const char* FC_INITIATOR = "223";

Sim_Reply ok(const json_spirit::Value& data) { return Sim_Reply{200, OceanStor_Sim::reply_text(data)}; }

Sim_Reply fail(int64_t code, const std::string& description) {
  return Sim_Reply{200, OceanStor_Sim::reply_text(json_spirit::Object(), code, description)};
}

// A decimal number and nothing else.
bool parse_number(const std::string& text, uint64_t& out) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 19) return false;
  out = std::strtoull(text.c_str(), nullptr, 10);
  return true;
}

// A body member that the array takes either as a string or as a number.
std::string text_of(const json_spirit::Object& body, const std::string& key) {
  const auto it = body.find(key);
  if (it == body.end()) return std::string();
  if (it->second.type() == json_spirit::str_type) return it->second.get_str();
  if (it->second.type() == json_spirit::int_type) return std::to_string(it->second.get_int64());
  return std::string();
}

std::string wwn_for(const std::string& id) {
  std::string digits = "6a8ffba1005d" + std::string(20 - std::min<std::size_t>(id.size(), 20), '0') + id;
  return digits.substr(0, 32);
}

}  // namespace

void OceanStor_Sim::add_lun(const std::string& id, const std::string& name, uint64_t size) {
  std::lock_guard<std::mutex> lock(mutex_);
  Volume& v = volumes_[id];
  v.name = name;
  v.wwn = wwn_for(id);
  v.size = size;
}

void OceanStor_Sim::add_snapshot(const std::string& id, const std::string& name, const std::string& lun_id) {
  std::lock_guard<std::mutex> lock(mutex_);
  Volume snap;
  const auto lun = volumes_.find(lun_id);
  if (lun != volumes_.end()) {
    sync_from_device(lun->second);
    snap.size = lun->second.size;
    snap.chunks = lun->second.chunks;  // the LUN as it is now
  }
  snap.snapshot = true;
  snap.name = name;
  snap.wwn = wwn_for(id);
  snap.parent = lun_id;
  volumes_[id] = snap;
}

void OceanStor_Sim::write_chunk(const std::string& object_id, uint64_t chunk, const std::string& content) {
  std::lock_guard<std::mutex> lock(mutex_);
  Volume& v = volumes_[object_id];
  sync_from_device(v);
  v.chunks[chunk] = content;
  write_device_chunk(v, chunk);
}

void OceanStor_Sim::add_lun_group(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  lun_groups_[id];
}

void OceanStor_Sim::add_host(const std::string& id, const std::string& name, const std::string& lun_group_id) {
  std::lock_guard<std::mutex> lock(mutex_);
  hosts_[id].name = name;
  hosts_[id].lun_group = lun_group_id;
}

void OceanStor_Sim::add_host_link(const std::string& host_id, const std::string& link_id, const std::string& health,
                                  const std::string& running) {
  std::lock_guard<std::mutex> lock(mutex_);
  hosts_[host_id].links.push_back(json_spirit::Object{
      {"ID", link_id},
      {"TYPE", HOST_LINK_TYPE},
      {"INITIATOR_ID", "21000024ff" + link_id},
      {"INITIATOR_PORT_WWN", "21000024ff" + link_id},
      {"INITIATOR_TYPE", FC_INITIATOR},
      {"TARGET_ID", "0.A.IOM0.P" + link_id},
      {"TARGET_PORT_WWN", "2000a0a8" + link_id},
      {"TARGET_TYPE", "212"},
      {"HEALTHSTATUS", health},
      {"RUNNINGSTATUS", running},
      {"PARENTID", host_id},
  });
}

bool OceanStor_Sim::in_lun_group(const std::string& group_id, const std::string& object_id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto group = lun_groups_.find(group_id);
  return group != lun_groups_.end() &&
         std::find(group->second.begin(), group->second.end(), object_id) != group->second.end();
}

bool OceanStor_Sim::exposed(const std::string& object_id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return is_exposed(object_id);
}

void OceanStor_Sim::set_unexpose_after_reads(int reads) {
  std::lock_guard<std::mutex> lock(mutex_);
  unexpose_after_reads_ = reads;
}

void OceanStor_Sim::set_chunk_size_text(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  chunk_size_text_ = text;
}

std::vector<std::string> OceanStor_Sim::groups_of(const std::string& id) const {
  std::vector<std::string> out;
  for (const auto& group : lun_groups_)
    if (std::find(group.second.begin(), group.second.end(), id) != group.second.end()) out.push_back(group.first);
  return out;
}

bool OceanStor_Sim::is_exposed(const std::string& id) const {
  const auto v = volumes_.find(id);
  if (v == volumes_.end()) return false;
  return !groups_of(id).empty() || v->second.reads_until_unexposed > 0;
}

json_spirit::Value OceanStor_Sim::volume_json(const std::string& id, Volume& v, int host_lun_id) {
  json_spirit::Object o{
      {"ID", id},
      {"NAME", v.name},
      {"TYPE", v.snapshot ? SNAPSHOT_TYPE : LUN_TYPE},
      {"WWN", v.wwn},
      {"EXPOSEDTOINITIATOR", is_exposed(id) ? "true" : "false"},
      {"HEALTHSTATUS", "1"},
      {"RUNNINGSTATUS", v.snapshot ? "43" : "27"},
  };
  if (v.snapshot) {
    o["PARENTID"] = v.parent;
    o["USERCAPACITY"] = std::to_string(v.size / 512);
  } else {
    o["CAPACITY"] = std::to_string(v.size / 512);
    o["remoteLunWwn"] = "--";
    o["takeOverLunWwn"] = "--";
  }
  if (host_lun_id >= 0) o["ASSOCIATEMETADATA"] = "{\"HostLUNID\":" + std::to_string(host_lun_id) + "}";
  return o;
}

Sim_Reply OceanStor_Sim::route(const Sim_Request& request, const std::string& resource) {
  const bool get = request.method == "GET";
  if (resource == "sessions" && request.method == "DELETE") return on_logout(request);
  if (resource == "lun/associate" && get) return on_associated(request, false);
  if (resource == "snapshot/associate" && get) return on_associated(request, true);
  if (resource.compare(0, 4, "lun/") == 0 && get) return on_lun(resource.substr(4));
  if (resource.compare(0, 9, "snapshot/") == 0 && get) return on_snapshot(resource.substr(9));
  if (resource == "lungroup/associate") return on_lun_group(request);
  if (resource == "host/associate" && get) return on_host_associate(request);
  if (resource == "host_link" && get) return on_host_link(request);
  if (resource == "lun_bitmap/get_bitmap_chks" && get) return on_bitmap_chunk(request);
  if (resource == "lun_bitmap/get_alloc" && get) return on_bitmap(request, false);
  if (resource == "lun_bitmap/get_unshared" && get) return on_bitmap(request, true);
  return fail(BAD_PARAMETER, "The request is not supported.");
}

Sim_Reply OceanStor_Sim::on_login(const Sim_Request& request, std::string& set_cookie) {
  json_spirit::Value body;
  if (!json_spirit::read(request.body, body) || body.type() != json_spirit::obj_type)
    return fail(BAD_PARAMETER, "The request body is not valid.");
  const json_spirit::Object& o = body.get_obj();
  std::lock_guard<std::mutex> lock(mutex_);
  if (text_of(o, "username") != username_ || text_of(o, "password") != password_)
    return fail(1077949061, "The user name or password is incorrect.");
  const std::string cookie = random_hex_text(32);
  const std::string token = random_hex_text(64);
  sessions_[cookie] = token;
  ++logins_;
  set_cookie = "session=ismsession=" + cookie + ";SameSite=Lax;path=/;httponly";
  return ok(json_spirit::Object{
      {"deviceid", device_id_},
      {"iBaseToken", token},
      {"accountstate", 1},
      {"userid", username_},
      {"username", username_},
      {"userscope", text_of(o, "scope").empty() ? "0" : text_of(o, "scope")},
      {"lastloginip", "127.0.0.1"},
  });
}

Sim_Reply OceanStor_Sim::on_logout(const Sim_Request& request) {
  const std::string cookie = request.header("Cookie");
  const auto mark = cookie.find("ismsession=");
  std::lock_guard<std::mutex> lock(mutex_);
  if (mark != std::string::npos) {
    std::string value = cookie.substr(mark + 11);
    value = value.substr(0, value.find(';'));
    sessions_.erase(value);
  }
  return ok(json_spirit::Object());
}

Sim_Reply OceanStor_Sim::on_lun(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto v = volumes_.find(id);
  if (v == volumes_.end() || v->second.snapshot) return fail(OBJECT_NOT_EXIST, "The LUN does not exist.");
  json_spirit::Value data = volume_json(id, v->second, -1);
  if (v->second.reads_until_unexposed > 0) --v->second.reads_until_unexposed;
  return ok(data);
}

Sim_Reply OceanStor_Sim::on_snapshot(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto v = volumes_.find(id);
  if (v == volumes_.end() || !v->second.snapshot) return fail(OBJECT_NOT_EXIST, "The snapshot does not exist.");
  json_spirit::Value data = volume_json(id, v->second, -1);
  if (v->second.reads_until_unexposed > 0) --v->second.reads_until_unexposed;
  return ok(data);
}

// LUNs or snapshots mapped to a host (through its lun group), optionally "filter=ID:<id>".
Sim_Reply OceanStor_Sim::on_associated(const Sim_Request& request, bool snapshots) {
  if (request.param("ASSOCIATEOBJTYPE") != std::to_string(HOST_TYPE))
    return fail(BAD_PARAMETER, "The associated object type is not supported.");
  const std::string filter = request.param("filter");
  const std::string wanted = filter.compare(0, 3, "ID:") == 0 ? filter.substr(3) : std::string();
  std::lock_guard<std::mutex> lock(mutex_);
  json_spirit::Array data;
  const auto host = hosts_.find(request.param("ASSOCIATEOBJID"));
  if (host != hosts_.end()) {
    const auto group = lun_groups_.find(host->second.lun_group);
    if (group != lun_groups_.end()) {
      for (std::size_t i = 0; i < group->second.size(); ++i) {
        const std::string& id = group->second[i];
        Volume& v = volumes_[id];
        if (v.snapshot != snapshots || (!wanted.empty() && id != wanted)) continue;
        data.push_back(volume_json(id, v, static_cast<int>(i + 1)));
      }
    }
  }
  return ok(data);
}

Sim_Reply OceanStor_Sim::on_lun_group(const Sim_Request& request) {
  if (request.method != "POST" && request.method != "DELETE") return fail(BAD_PARAMETER, "Unsupported method.");
  json_spirit::Value body;
  if (!json_spirit::read(request.body, body) || body.type() != json_spirit::obj_type)
    return fail(BAD_PARAMETER, "The request body is not valid.");
  const json_spirit::Object& o = body.get_obj();
  const std::string group_id = text_of(o, "ID");
  const std::string type = text_of(o, "ASSOCIATEOBJTYPE");
  const std::string object_id = text_of(o, "ASSOCIATEOBJID");
  std::lock_guard<std::mutex> lock(mutex_);
  const auto group = lun_groups_.find(group_id);
  if (group == lun_groups_.end()) return fail(BAD_PARAMETER, "The LUN group does not exist.");
  const auto v = volumes_.find(object_id);
  if (v == volumes_.end()) return fail(OBJECT_NOT_EXIST, "The LUN or snapshot does not exist.");
  if (type != std::to_string(v->second.snapshot ? SNAPSHOT_TYPE : LUN_TYPE))
    return fail(BAD_PARAMETER, "The associated object type is wrong.");
  auto& members = group->second;
  const auto member = std::find(members.begin(), members.end(), object_id);
  if (request.method == "POST") {
    if (member != members.end()) return fail(ALREADY_IN_LUN_GROUP, "The object is already in the LUN group.");
    members.push_back(object_id);
    v->second.reads_until_unexposed = -1;
    create_device(v->second);
    return ok(json_spirit::Object());
  }
  if (member == members.end()) return fail(NOT_IN_LUN_GROUP, "The object is not in the LUN group.");
  members.erase(member);
  v->second.reads_until_unexposed = unexpose_after_reads_ > 0 ? unexpose_after_reads_ : -1;
  if (groups_of(object_id).empty()) remove_device(v->second);
  return ok(json_spirit::Object());
}

Sim_Reply OceanStor_Sim::on_host_associate(const Sim_Request& request) {
  const std::string type = request.param("ASSOCIATEOBJTYPE");
  if (type != std::to_string(LUN_TYPE) && type != std::to_string(SNAPSHOT_TYPE))
    return fail(BAD_PARAMETER, "The associated object type is not supported.");
  const std::string id = request.param("ASSOCIATEOBJID");
  std::lock_guard<std::mutex> lock(mutex_);
  const std::vector<std::string> groups = groups_of(id);
  json_spirit::Array data;
  for (const auto& host : hosts_) {
    if (std::find(groups.begin(), groups.end(), host.second.lun_group) == groups.end()) continue;
    data.push_back(json_spirit::Object{
        {"ID", host.first},
        {"NAME", host.second.name},
        {"TYPE", HOST_TYPE},
        {"IP", ""},
        {"HEALTHSTATUS", "1"},
        {"RUNNINGSTATUS", "1"},
        {"OPERATIONSYSTEM", "0"},
    });
  }
  return ok(data);
}

Sim_Reply OceanStor_Sim::on_host_link(const Sim_Request& request) {
  std::lock_guard<std::mutex> lock(mutex_);
  json_spirit::Array data;
  const auto host = hosts_.find(request.param("PARENTID"));
  if (host != hosts_.end() && request.param("INITIATOR_TYPE") == FC_INITIATOR) data = host->second.links;
  return ok(data);
}

Sim_Reply OceanStor_Sim::on_bitmap_chunk(const Sim_Request& request) {
  const std::string id = request.param("LUNID");
  std::lock_guard<std::mutex> lock(mutex_);
  if (volumes_.find(id) == volumes_.end()) return fail(OBJECT_NOT_EXIST, "The LUN does not exist.");
  return ok(json_spirit::Object{{"BITMAPCHUNKSIZE", chunk_size_text_}, {"LUNID", id}});
}

// One bit per chunk of the segment, least significant bit first: set when the chunk
// holds data (get_alloc) or differs from the base (get_unshared).
Sim_Reply OceanStor_Sim::on_bitmap(const Sim_Request& request, bool unshared) {
  uint64_t start = 0, length = 0, chunk_kib = 0;
  if (!parse_number(request.param("SEGMENTSTARTOFFSETBYTES"), start) ||
      !parse_number(request.param("SEGMENTLENGTHBYTES"), length) ||
      !parse_number(request.param("BITMAPCHUNKSIZE"), chunk_kib) || chunk_kib == 0 || length == 0 ||
      length > MAX_SEGMENT_BYTES)
    return fail(BAD_PARAMETER, "The segment parameters are not valid.");
  const std::string id = request.param("LUNID");
  const std::string base_id = request.param("BASELUNID");
  std::lock_guard<std::mutex> lock(mutex_);
  const auto v = volumes_.find(id);
  if (v == volumes_.end()) return fail(OBJECT_NOT_EXIST, "The LUN does not exist.");
  const auto base = volumes_.find(base_id);
  if (unshared && base == volumes_.end()) return fail(OBJECT_NOT_EXIST, "The base LUN does not exist.");
  sync_from_device(v->second);
  if (unshared) sync_from_device(base->second);
  const uint64_t chunk_bytes = chunk_kib * 1024;
  const uint64_t first = start / chunk_bytes;
  const uint64_t count = (length + chunk_bytes - 1) / chunk_bytes;
  std::string bytes((count + 7) / 8, '\0');
  const auto content = [](const Volume& vol, uint64_t chunk) {
    const auto it = vol.chunks.find(chunk);
    return it == vol.chunks.end() ? std::string() : it->second;
  };
  for (uint64_t i = 0; i < count; ++i) {
    const std::string mine = content(v->second, first + i);
    const bool set = unshared ? mine != content(base->second, first + i) : !mine.empty();
    if (set) bytes[i / 8] = static_cast<char>(bytes[i / 8] | (1 << (i % 8)));
  }
  return ok(json_spirit::Object{{"CHUNKBITMAP", hex_encode(bytes, Hex_Case::UPPER)}, {"LUNID", id}});
}

}  // namespace au_sim
