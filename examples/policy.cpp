// Reads a policy file. The library takes most values unchecked and writes some of them into shell scripts, so they are
// all checked here, where their line is still known.
#include "policy.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string_view>

#include <torvane/map.h>
#include <torvane/qos.h>
#include <torvane/rules.h>

#include "section.h"

namespace {

constexpr txt_map_entry root_kinds[] = {{QOS_ROOT_PFIFO_FAST, "pfifo_fast"},
                                        {QOS_ROOT_HTB, "htb"},
                                        {QOS_ROOT_HFSC, "hfsc"},
                                        {QOS_ROOT_PRIO, "prio"},
                                        {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry leaf_kinds[] = {{QOS_LEAF_PFIFO, "pfifo"},
                                        {QOS_LEAF_SFQ, "sfq"},
                                        {QOS_LEAF_RED, "red"},
                                        {QOS_LEAF_TBF, "tbf"},
                                        {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry protocols[] = {{QOS_PROTO_TCP, "tcp"},   {QOS_PROTO_UDP, "udp"}, {QOS_PROTO_ICMP, "icmp"},
                                       {QOS_PROTO_BOTH, "both"}, {QOS_PROTO_ALL, "all"}, {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry helpers[] = {
    {QOS_ALG_SIP, "sip"}, {QOS_ALG_Q931, "Q.931"}, {QOS_ALG_FTP, "ftp"}, {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry tcp_flags[] = {{QOS_TCP_SYN, "SYN"},    {QOS_TCP_ACK, "ACK"}, {QOS_TCP_FIN, "FIN"},
                                       {QOS_TCP_RST, "RST"},    {QOS_TCP_URG, "URG"}, {QOS_TCP_PSH, "PSH"},
                                       {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry day_names[] = {{0, "Sun"}, {1, "Mon"}, {2, "Tue"}, {3, "Wed"},
                                       {4, "Thu"}, {5, "Fri"}, {6, "Sat"}, {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry tos_names[] = {{16, "Minimize-Delay"}, {8, "Maximize-Throughput"}, {4, "Maximize-Reliability"},
                                       {2, "Minimize-Cost"},   {0, "Normal-Service"},      {0xFFFFFFFFu, "Unknown"}};
constexpr txt_map_entry dscp_names[] = {{0, "CS0"},
                                        {1, "CS1"},
                                        {2, "CS2"},
                                        {3, "CS3"},
                                        {4, "CS4"},
                                        {5, "CS5"},
                                        {6, "CS6"},
                                        {7, "CS7"},
                                        {8, "BE"},
                                        {9, "AF11"},
                                        {10, "AF12"},
                                        {11, "AF13"},
                                        {12, "AF21"},
                                        {13, "AF22"},
                                        {14, "AF23"},
                                        {15, "AF31"},
                                        {16, "AF32"},
                                        {17, "AF33"},
                                        {18, "AF41"},
                                        {19, "AF42"},
                                        {20, "AF43"},
                                        {21, "EF"},
                                        {0xFFFFFFFFu, "Unknown"}};

constexpr uint32_t highest_rate = 100'000'000; // kbit/s
constexpr uint32_t highest_size = 100'000'000; // bytes
constexpr uint32_t highest_class = 0xFFF;      // a leaf's handle has 16 bits and is the class id shifted by 4

constexpr unsigned mode_raw = 0, mode_class = 1; // how a match or target record holds its DSCP

// Returns whether the text consists of letters, digits and the characters of `more`.
bool only_characters(std::string_view text, std::string_view more) {
  return std::all_of(text.begin(), text.end(), [more](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           more.find(c) != std::string_view::npos;
  });
}

// Returns a time such as "18:30" as minutes since midnight.
std::optional<uint32_t> time_of_day(std::string_view text) {
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos || text.size() != colon + 3)
    return std::nullopt;
  const auto hour = decimal(text.substr(0, colon), 23), minute = decimal(text.substr(colon + 1), 59);
  if (!hour || !minute)
    return std::nullopt;
  return *hour * 60 + *minute;
}

bool is_mac(std::string_view text) {
  if (text.size() != 17)
    return false;
  for (size_t i = 0; i < text.size(); i++) {
    if (i % 3 == 2 ? text[i] != ':' : !std::isxdigit(static_cast<unsigned char>(text[i])))
      return false;
  }
  return true;
}

// The records hold a raw DSCP or precedence in the first byte of a field in memory, whatever the host's byte order.
void set_first_byte(uint32_t &field, uint32_t value) {
  const auto byte = static_cast<uint8_t>(value);
  memcpy(&field, &byte, sizeof(byte));
}

struct KnownClass {
  uint16_t parent;
  bool has_children;
};

class PolicyReader {
 public:
  PolicyReader(const toml::table &file, std::vector<Mistake> &mistakes) : top_(file, "the policy", mistakes) {}

  Policy read() {
    read_interface();
    top_.require("root");
    auto root = top_.section("root");
    auto classes = top_.sections("class");
    tree_is_known_ = root.has_value();
    if (root) {
      read_root(*root);
      for (Section &section : classes)
        read_class(section);
      check_leaves();
      read_marks(*root);
      root->finish();
    }
    for (Section &section : top_.sections("schedule"))
      read_schedule(section);
    for (Section &section : top_.sections("rule"))
      read_rule(section);
    top_.finish();
    std::stable_sort(policy_.rules.begin(), policy_.rules.end(),
                     [](const PolicyRule &a, const PolicyRule &b) { return a.index < b.index; });
    return policy_;
  }

 private:
  bool takes_classes() const {
    return policy_.root_kind == QOS_ROOT_HTB || policy_.root_kind == QOS_ROOT_HFSC;
  }

  bool is_leaf(uint32_t id) const {
    const auto found = known_.find(id);
    return found != known_.end() && !found->second.has_children;
  }

  void check_mark(const Section &section, unsigned line, const char *what, uint32_t id) const {
    if (tree_is_known_ && !is_leaf(id))
      section.mistake(line, std::string(what) + " " + std::to_string(id) + " is no leaf class");
  }

  // The library writes the name unchecked into shell scripts, so that only a plain name may pass.
  void read_interface() {
    top_.require("interface");
    const auto name = top_.text("interface");
    if (name && (name->empty() || name->size() > 15 || !only_characters(*name, "._-") || name->front() == '-' ||
                 name->front() == '.'))
      top_.mistake("interface", "interface \"" + Section::printable(*name) +
                                    "\" is no interface name: 1 to 15 letters, digits, '.', '_' and '-', the first "
                                    "neither '.' nor '-'");
    policy_.interface = name.value_or("");
    for (const char *key : {"link_rate", "physical_rate"})
      top_.require(key);
    top_.numbers("link_rate", policy_.speeds, 2, 1, highest_rate);
    top_.numbers("physical_rate", policy_.speeds + 2, 2, 1, highest_rate);
  }

  void read_root(Section &root) {
    root.require("kind");
    const auto kind = root.word("kind", root_kinds);
    tree_is_known_ = kind.has_value();
    policy_.root_kind = kind.value_or(QOS_ROOT_HTB);
    switch (policy_.root_kind) {
      case QOS_ROOT_PFIFO_FAST:
        root.require("queue_length");
        policy_.pfifo.txqueuelen = root.number("queue_length", 1, 100000).value_or(1);
        break;
      case QOS_ROOT_PRIO:
        read_bands(root);
        break;
      default:
        // The library makes these classes with the tree.
        known_ = {{1, {0, true}}, {2, {1, false}}, {3, {1, false}}};
        drop_classes(root);
        break;
    }
  }

  void read_bands(Section &root) {
    root.require("bands");
    root.require("priomap");
    const uint32_t bands = root.number("bands", 2, 16).value_or(16);
    policy_.prio.bands = static_cast<uint8_t>(bands);
    root.numbers("priomap", policy_.prio.priomap, 16, 0, bands - 1);
    for (uint32_t band = 1; band <= bands; band++)
      known_[band] = {0, false};
  }

  void drop_classes(Section &root) {
    const toml::node *value = root.find("drop");
    const toml::array *list = value ? value->as_array() : nullptr;
    if (value && !list)
      root.mistake("drop", "drop must be a list of default classes");
    for (size_t i = 0; list && i < list->size(); i++) {
      const auto id = root.number_in(*list->get(i), "drop", 1, 3);
      if (!id)
        continue;
      policy_.dropped_classes.push_back(static_cast<uint16_t>(*id));
      known_.erase(*id);
      if (*id == 1)
        known_.clear();
    }
    if (known_.size() == 1)
      known_[1].has_children = false;
  }

  void read_class(Section &section) {
    PolicyClass item;
    section.require("id");
    const auto id = section.number("id", 1, highest_class);
    item.id = static_cast<uint16_t>(id.value_or(0));
    tree_is_known_ &= id.has_value();
    switch (policy_.root_kind) {
      case QOS_ROOT_HTB:
        read_place(section, id);
        read_htb(section, item.htb);
        break;
      case QOS_ROOT_HFSC:
        read_place(section, id);
        read_hfsc(section, item.hfsc);
        break;
      case QOS_ROOT_PRIO:
        if (id && known_.count(*id) == 0)
          section.mistake("id", "class " + std::to_string(*id) + " is no band: the bands are classes 1 to " +
                                    std::to_string(policy_.prio.bands));
        else if (id && !bands_seen_.insert(*id).second)
          section.mistake("id", "class " + std::to_string(*id) + " exists already");
        break;
      default:
        section.mistake(section.line(), "a pfifo_fast root takes no classes");
        return;
    }
    item.parent = id && known_.count(*id) != 0 ? known_[*id].parent : static_cast<uint16_t>(0);
    if (const auto leaf = section.section("leaf")) {
      item.has_leaf = true;
      read_leaf(*leaf, item.leaf);
      if (id && takes_classes())
        leaves_.emplace_back(*id, section.line("leaf"));
    }
    section.finish();
    policy_.classes.push_back(item);
  }

  // Adds the class to the tree that is known so far.
  void read_place(Section &section, std::optional<uint32_t> id) {
    section.require("parent");
    const auto parent = section.number("parent", 0, highest_class);
    std::string wrong;
    if (!id || !parent) {
      tree_is_known_ = false;
    } else if (known_.count(*id) != 0) {
      wrong = "class " + std::to_string(*id) + " exists already";
      if (made_with_tree(*id))
        wrong += ": it is made with the tree; list it in drop to make your own";
      section.mistake("id", wrong);
    } else if (*parent != 0 && known_.count(*parent) == 0) {
      wrong = "parent " + std::to_string(*parent) + " does not exist: a parent stands before its children";
      section.mistake("parent", wrong);
    } else if (*parent != 0 && *id == 1) {
      wrong = "class 1 can only stand at the top, with parent 0";
      section.mistake("parent", wrong);
    } else {
      if (*parent != 0)
        known_[*parent].has_children = true;
      known_[*id] = {static_cast<uint16_t>(*parent), false};
    }
    tree_is_known_ &= wrong.empty();
  }

  bool made_with_tree(uint32_t id) const {
    return id <= 3 && std::none_of(policy_.dropped_classes.begin(), policy_.dropped_classes.end(),
                                   [id](uint16_t dropped) { return dropped == id || dropped == 1; });
  }

  void read_htb(Section &section, htb_params &htb) {
    section.require("rate");
    htb.rate = section.number("rate", 1, highest_rate).value_or(1);
    htb.ceil = section.number("ceil", 1, highest_rate).value_or(htb.rate);
    htb.burst = section.number("burst", 0, highest_size).value_or(0);
    htb.cburst = section.number("cburst", 0, highest_size).value_or(0);
    htb.prio = section.number("prio", 0, 7).value_or(0);
    if (htb.ceil < htb.rate)
      section.mistake("ceil", "ceil " + std::to_string(htb.ceil) + " is below rate " + std::to_string(htb.rate));
  }

  // The library always writes a class with its upper limit and one curve more. tc refuses an upper limit next to rt
  // alone, so that a policy cannot ask for rt.
  void read_hfsc(Section &section, hfsc_params &hfsc) {
    section.require("ul");
    read_curve(section, "ul", hfsc.ul);
    read_curve(section, "sc", hfsc.sc);
    read_curve(section, "ls", hfsc.ls);
    if ((hfsc.sc.rate != 0) == (hfsc.ls.rate != 0))
      section.mistake(section.line(), section.name() + " must have either sc or ls");
  }

  void read_curve(Section &section, const char *key, hfsc_curve &curve) {
    auto values = section.section(key);
    if (!values)
      return;
    values->require("rate");
    curve.rate = values->number("rate", 1, highest_rate).value_or(1);
    curve.umax = values->number("umax", 1, highest_size).value_or(0);
    curve.dmax = values->number("dmax", 1, 60000).value_or(0);
    if (curve.umax != 0 && curve.dmax == 0)
      values->mistake("umax", "umax needs a dmax: the delay that it may have");
    values->finish();
  }

  void read_leaf(Section section, leaf_qdisc &leaf) {
    const auto required = [&section](const char *key, uint32_t highest) {
      section.require(key);
      return section.number(key, 1, highest).value_or(1);
    };
    section.require("kind");
    const auto kind = section.word("kind", leaf_kinds);
    if (!kind)
      return;
    leaf.type = *kind;
    switch (leaf.type) {
      case QOS_LEAF_PFIFO:
        leaf.params.pfifo.limit = section.number("limit", 1, 100000).value_or(0);
        break;
      case QOS_LEAF_SFQ:
        leaf.params.sfq.perturb = static_cast<uint8_t>(section.number("perturb", 0, 255).value_or(0));
        break;
      case QOS_LEAF_RED:
        leaf.params.red.min = required("min", highest_size);
        leaf.params.red.max = required("max", highest_size);
        leaf.params.red.burst = required("burst", 100000);
        leaf.params.red.limit = required("limit", highest_size);
        leaf.params.red.avpkt = required("avpkt", 65535);
        if (section.find("max") && leaf.params.red.min >= leaf.params.red.max)
          section.mistake("max", "max must be above min");
        break;
      default:
        leaf.params.tbf.latency = required("latency", 60000);
        leaf.params.tbf.rate = required("rate", highest_rate);
        leaf.params.tbf.burst = required("burst", highest_size);
        break;
    }
    section.finish();
  }

  // Checks that no class with a leaf has children, which shows only when all classes are read. A tree with mistakes in
  // its shape is not checked, because their consequences would be reported as more mistakes.
  void check_leaves() {
    if (!tree_is_known_)
      return;
    for (const auto &[id, line] : leaves_) {
      if (!is_leaf(id))
        top_.mistake(line, "class " + std::to_string(id) + " has children: it cannot have a leaf");
    }
  }

  void read_marks(Section &root) {
    automark *automatic = nullptr;
    if (takes_classes()) {
      root.require("default_class");
      const auto id = root.number("default_class", 1, highest_class);
      if (id)
        check_mark(root, root.line("default_class"), "default_class", *id);
      policy_.tree.default_class = static_cast<uint16_t>(id.value_or(0));
      automatic = &policy_.tree.automark;
    } else if (policy_.root_kind == QOS_ROOT_PRIO) {
      automatic = &policy_.prio.automark;
    }
    if (!automatic || !root.find("automarks"))
      return;
    automatic->enable = 1;
    root.numbers("automarks", automatic->mark, std::size(automatic->mark), 1, highest_class);
    for (const uint16_t mark : automatic->mark) {
      if (mark != 0)
        check_mark(root, root.line("automarks"), "automark", mark);
    }
  }

  void read_schedule(Section &section) {
    qos_sched item = {};
    section.require("number");
    const auto number = section.number("number", 1, 255);
    if (number && !schedules_.insert(*number).second)
      section.mistake("number", "schedule " + std::to_string(*number) + " exists already");
    item.index = static_cast<uint8_t>(number.value_or(0));
    item.days = section.bits("days", day_names).value_or(0);
    item.all_day = section.flag("all_day") ? 1 : 0;
    const auto start = time(section, "start"), stop = time(section, "stop");
    item.start_hour = static_cast<uint8_t>(start / 60);
    item.start_min = static_cast<uint8_t>(start % 60);
    item.stop_hour = static_cast<uint8_t>(stop / 60);
    item.stop_min = static_cast<uint8_t>(stop % 60);
    const bool has_times = section.find("start") || section.find("stop");
    if (has_times == (item.all_day == 1) || !section.find("start") != !section.find("stop"))
      section.mistake(section.line(), section.name() + " must have either start and stop, or all_day = true");
    section.finish();
    policy_.schedules.push_back(item);
  }

  static uint32_t time(Section &section, const char *key) {
    const auto text = section.text(key);
    const auto minutes = text ? time_of_day(*text) : std::nullopt;
    if (text && !minutes)
      section.mistake(key, std::string(key) + " must be a time from \"0:00\" to \"23:59\", not \"" +
                               Section::printable(*text) + "\"");
    return minutes.value_or(0);
  }

  void read_rule(Section &section) {
    PolicyRule rule;
    section.require("index");
    const auto index = section.number("index", 1, 255);
    if (index && !rules_.insert(*index).second)
      section.mistake("index", "rule " + std::to_string(*index) + " exists already");
    rule.index = static_cast<uint8_t>(index.value_or(0));
    rule.name = Section::printable(section.text("name").value_or(""));
    read_addresses(section, rule.match);
    read_protocol(section, rule.match);
    read_packet_fields(section, rule.match);
    read_names(section, rule.match);
    const auto schedule = section.number("schedule", 1, 255);
    if (schedule && schedules_.count(*schedule) == 0)
      section.mistake("schedule", "schedule " + std::to_string(*schedule) + " does not exist");
    rule.match.sched_index = static_cast<uint8_t>(schedule.value_or(0));
    read_targets(section, rule.target);
    section.finish();
    policy_.rules.push_back(rule);
  }

  void read_addresses(Section &section, qos_match &match) {
    const auto source = section.address_range("source"), destination = section.address_range("destination");
    if (source || destination)
      match.match_flags |= 1u << QOS_MATCH_IP;
    if (source) {
      match.src_ip_start = source->from;
      match.src_ip_end = source->to;
    }
    if (destination) {
      match.dst_ip_start = destination->from;
      match.dst_ip_end = destination->to;
    }
    const auto mac = section.text("mac");
    if (mac && !is_mac(*mac)) {
      section.mistake(
          "mac", "mac must be six pairs of hexadecimal digits with colons, not \"" + Section::printable(*mac) + "\"");
    } else if (mac) {
      match.match_flags |= 1u << QOS_MATCH_MAC;
      memcpy(match.src_mac, mac->data(), mac->size());
    }
  }

  void read_protocol(Section &section, qos_match &match) {
    const auto protocol = section.word("protocol", protocols);
    if (protocol) {
      match.match_flags |= 1u << QOS_MATCH_PROTOCOL;
      match.protocol = *protocol;
    }
    const uint32_t code = protocol.value_or(QOS_PROTO_ALL);
    const bool tcp = code == QOS_PROTO_TCP || code == QOS_PROTO_BOTH;
    for (const char *key : {"source_port", "destination_port"}) {
      if (section.find(key) && !tcp && code != QOS_PROTO_UDP)
        section.mistake(key, std::string(key) + " needs protocol tcp, udp or both");
    }
    if (const auto ports = section.number_range("source_port", 1, 65535)) {
      match.sport_min = static_cast<uint16_t>(ports->from);
      match.sport_max = static_cast<uint16_t>(ports->to);
    }
    if (const auto ports = section.number_range("destination_port", 1, 65535)) {
      match.dport_min = static_cast<uint16_t>(ports->from);
      match.dport_max = static_cast<uint16_t>(ports->to);
    }
    if (auto flags = section.section("tcp_flags")) {
      flags->require("examined");
      flags->require("set");
      match.tcp_flag_mask = flags->bits("examined", tcp_flags).value_or(0);
      match.tcp_flag_set = flags->bits("set", tcp_flags).value_or(0);
      flags->finish();
      if ((match.tcp_flag_set & ~match.tcp_flag_mask) != 0)
        flags->mistake("set", "set has a flag that is not examined");
      if (!tcp)
        section.mistake("tcp_flags", "tcp_flags needs protocol tcp or both");
    }
  }

  struct Dscp {
    unsigned mode;
    uint32_t field; // in the form of the records
  };

  // Reads a DSCP, which is the name of a class such as "EF", or a number.
  static std::optional<Dscp> dscp(Section &section, const char *key) {
    const toml::node *value = section.find(key);
    if (!value)
      return std::nullopt;
    if (value->is_string()) {
      const auto id = section.word(key, dscp_names);
      return id ? std::optional(Dscp{mode_class, *id}) : std::nullopt;
    }
    const auto raw = section.number(key, 0, 63);
    if (!raw)
      return std::nullopt;
    Dscp result = {mode_raw, 0};
    set_first_byte(result.field, *raw);
    return result;
  }

  void read_packet_fields(Section &section, qos_match &match) {
    if (const auto value = dscp(section, "dscp")) {
      match.match_flags |= 1u << QOS_MATCH_DSCP;
      match.dscp_mode = value->mode;
      match.dscp = value->field;
    }
    if (const auto tos = section.word("tos", tos_names)) {
      match.match_flags |= 1u << QOS_MATCH_TOS;
      match.tos = *tos;
    }
    match.precedence = static_cast<uint8_t>(section.number("precedence", 0, 7).value_or(0));
    if (section.find("precedence") && !section.find("tos"))
      section.mistake("precedence", "precedence needs a tos: they are matched together");
    if (const auto length = section.number_range("length", 0, 65535)) {
      match.match_flags |= 1u << QOS_MATCH_PKTLEN;
      match.pkt_len = length->from << 16 | length->to;
    }
    if (const auto vlan = section.number("vlan", 1, 4094)) {
      match.match_flags |= 1u << QOS_MATCH_802_1Q;
      match.vlan_id = static_cast<uint16_t>(*vlan);
    }
    if (const auto priority = section.number("vlan_priority", 0, 7)) {
      match.match_flags |= 1u << QOS_MATCH_802_1P;
      match.prio_1p = static_cast<uint8_t>(*priority);
    }
  }

  void read_names(Section &section, qos_match &match) {
    if (const auto helper = section.word("helper", helpers)) {
      match.match_flags |= 1u << QOS_MATCH_ALG;
      match.alg = *helper;
    }
    if (copy_name(section, "domain", ".-", match.domain))
      match.match_flags |= 1u << QOS_MATCH_DOMAIN;
    if (copy_name(section, "url", "._/%+,:@-", match.url))
      match.match_flags |= 1u << QOS_MATCH_URL;
  }

  // The library writes domain and URL texts unchecked into shell scripts, so that no character with a meaning to the
  // shell may pass.
  template <size_t size>
  static bool copy_name(Section &section, const char *key, const char *more, char (&field)[size]) {
    const auto text = section.text(key);
    if (!text)
      return false;
    if (text->empty() || text->size() >= size || text->front() == '-' || !only_characters(*text, more)) {
      section.mistake(key, std::string(key) + " \"" + Section::printable(*text) + "\" must be 1 to " +
                               std::to_string(size - 1) + " letters, digits and " + more + ", the first not '-'");
      return false;
    }
    memcpy(field, text->data(), text->size());
    return true;
  }

  void read_targets(Section &section, qos_target &target) {
    if (const auto mark = section.number("mark", 1, highest_class)) {
      check_mark(section, section.line("mark"), "mark", *mark);
      target.target_flags |= 1u << QOS_TARGET_MARK;
      target.mark = *mark;
    }
    // Both are stored in the same two fields of the record.
    if (section.find("set_tos") && section.find("set_dscp"))
      section.mistake("set_dscp", "set_tos and set_dscp cannot be in one rule");
    if (const auto tos = section.word("set_tos", tos_names)) {
      target.target_flags |= 1u << QOS_TARGET_TOS;
      target.set_mode = *tos;
      set_first_byte(target.set_value, section.number("set_precedence", 0, 7).value_or(0));
    } else if (section.find("set_precedence")) {
      section.mistake("set_precedence", "set_precedence needs a set_tos: they are set together");
    }
    if (const auto value = dscp(section, "set_dscp")) {
      target.target_flags |= 1u << QOS_TARGET_DSCP;
      target.set_mode = value->mode;
      target.set_value = value->field;
    }
    if (auto vlan = section.section("add_vlan")) {
      vlan->require("id");
      target.target_flags |= 1u << QOS_TARGET_VLAN;
      target.vlan_tag_id = static_cast<uint16_t>(vlan->number("id", 1, 4094).value_or(1));
      target.vlan_prio = static_cast<uint8_t>(vlan->number("priority", 0, 7).value_or(0));
      target.vlan_double = vlan->flag("double") ? 1 : 0;
      vlan->finish();
    }
    target.log = section.flag("log") ? 1 : 0; // the report shows it, but no command is written for it
    const bool any =
        section.find("mark") || section.find("set_tos") || section.find("set_dscp") || section.find("add_vlan");
    if (!any)
      section.mistake(section.line(), section.name() + " does nothing: it has no mark, set_tos, set_dscp or add_vlan");
  }

  Policy policy_;
  Section top_;
  bool tree_is_known_ = false;                        // the shape of the tree has no mistake so far
  std::map<uint32_t, KnownClass> known_;              // the tree as far as it has been read
  std::set<uint32_t> bands_seen_;                     // PRIO bands that have a [[class]]
  std::vector<std::pair<uint32_t, unsigned>> leaves_; // id of a class, line of its leaf
  std::set<uint32_t> schedules_, rules_;
};

} // namespace

Policy read_policy(const std::string &path, std::vector<Mistake> &mistakes) {
  const toml::parse_result file = toml::parse_file(path);
  if (!file) {
    const toml::parse_error &error = file.error();
    mistakes.push_back({std::max(error.source().begin.line, 1u), Section::printable(std::string(error.description()))});
    return {};
  }
  Policy policy = PolicyReader(file.table(), mistakes).read();
  std::stable_sort(mistakes.begin(), mistakes.end(),
                   [](const Mistake &a, const Mistake &b) { return a.line < b.line; });
  const auto same = [](const Mistake &a, const Mistake &b) { return a.line == b.line && a.text == b.text; };
  mistakes.erase(std::unique(mistakes.begin(), mistakes.end(), same), mistakes.end());
  return policy;
}
