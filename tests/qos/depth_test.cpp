// Trees deeper than any router's: order of the walks, and the stack that they take.
#include "qos/tree_builders.h"
#include "support/stack_use.h"

namespace {

using trees::shape;
using Depth = trees::Test;

// Adds a class at the top level, where no id is looked for, and moves it below `children`.
qos_class *add_below(const char *ifname, list_node *children, uint16_t id) {
  EXPECT_EQ(0, trees::add_htb_class(ifname, 0, id));
  qos_class *added = trees::class_of(root_qdisc_find_by_name(ifname)->classes.prev);
  list_del(&added->node);
  list_add_tail(&added->node, children);
  return added;
}

// The classes of each level: one that has the next level's, between two that have none.
constexpr uint16_t first_of(unsigned level) {
  return static_cast<uint16_t>(10 * level);
}
constexpr uint16_t middle_of(unsigned level) {
  return static_cast<uint16_t>(10 * level + 1);
}
constexpr uint16_t last_of(unsigned level) {
  return static_cast<uint16_t>(10 * level + 2);
}

void add_levels(const char *ifname, unsigned levels) {
  trees::add_bare_htb(ifname);
  list_node *children = &root_qdisc_find_by_name(ifname)->classes;
  for (unsigned level = 1; level <= levels; level++) {
    add_below(ifname, children, first_of(level));
    qos_class *middle = add_below(ifname, children, middle_of(level));
    add_below(ifname, children, last_of(level));
    children = &middle->children;
  }
}

unsigned parent_at(unsigned level) {
  return level == 1 ? 0 : middle_of(level - 1);
}

// Returns what `line` gives for every class with its parent, in the order of a walk: down, then up again.
template <typename Line>
std::string in_order(unsigned levels, Line line) {
  std::string text;
  for (unsigned level = 1; level <= levels; level++) {
    text += line(parent_at(level), first_of(level), true);
    text += line(parent_at(level), middle_of(level), level == levels);
  }
  for (unsigned level = levels; level >= 1; level--)
    text += line(parent_at(level), last_of(level), true);
  return text;
}

std::string commands_of(unsigned parent, unsigned id, bool is_leaf) {
  char text[512];
  snprintf(text, sizeof(text),
           "tc class add dev eth1 parent 1:0x%-3x classid 1:0x%-3x htb rate 1kbit ceil 2kbit prio 5 burst 3 cburst 4\n",
           parent, id);
  std::string commands = text;
  if (is_leaf) {
    snprintf(text, sizeof(text),
             "tc qdisc add dev eth1 parent 1:0x%-3x handle 0x%x: pfifo \n"
             "tc filter add dev eth1 parent 1:0 protocol ip prio 50 handle 0x%x fw classid 1:0x%x\n",
             id, id * 16, id, id);
    commands += text;
  }
  return commands;
}

std::string report_of(unsigned parent, unsigned id, bool is_leaf) {
  char text[256];
  snprintf(text, sizeof(text),
           "class:           C_HTB handle %3u:%-3u          1 kbps          2 kbps          3 byte          4 byte "
           "prio: 5\n",
           parent, id);
  return std::string(text) + (is_leaf ? "leaf qdisc:      L_pfifo limit = 0\n" : "");
}

std::string written_commands(list_node *head) {
  return sandbox::written([=](FILE *out) { do_leaf2cmd(out, "eth1", head); });
}

std::string reported() {
  std::string text;
  for (const std::string &message : sandbox::console_messages())
    text += message;
  sandbox::clear_console();
  return text;
}

constexpr unsigned depths[] = {1, 2, 3, 63, 64, 65, 66, 67, 128, 129, 130, 131, 132, 200};

TEST_F(Depth, ChangesNoOrder) {
  for (const unsigned levels : depths) {
    SCOPED_TRACE(levels);
    add_levels("eth1", levels);
    list_node *top = &root_qdisc_find_by_name("eth1")->classes;
    EXPECT_EQ(in_order(levels, commands_of), written_commands(top));
    show_class("eth1");
    EXPECT_EQ(in_order(levels, report_of), reported());
    for (unsigned level = 1; level <= levels; level++)
      for (const uint16_t id : {first_of(level), middle_of(level), last_of(level)})
        EXPECT_EQ(id, class_find("eth1", id) ? class_find("eth1", id)->id : 0);
    EXPECT_EQ(nullptr, class_find("eth1", 9));
    EXPECT_EQ(0, del_root_qdisc("eth1"));
  }
}

TEST_F(Depth, BelowAClassIsWalkedAsFarAsItsOwnChildren) {
  add_levels("eth1", 150);
  for (const unsigned level : {1u, 40u, 86u, 149u}) {
    list_node *children = &class_find("eth1", middle_of(level))->children;
    const std::string commands = written_commands(children), wanted = in_order(150, commands_of);
    const std::string begins = commands_of(middle_of(level), first_of(level + 1), true);
    const std::string ends = commands_of(middle_of(level), last_of(level + 1), true);
    EXPECT_TRUE(commands.starts_with(begins)) << level;
    EXPECT_TRUE(commands.ends_with(ends)) << level;
    EXPECT_NE(std::string::npos, wanted.find(commands)) << level;
    draw_class(children);
    EXPECT_NE(std::string::npos, in_order(150, report_of).find(reported())) << level;
    EXPECT_EQ(nullptr, class_find_in_list(children, last_of(level)));
    EXPECT_EQ(150 * 10 + 2, class_find_in_list(children, last_of(150))->id);
  }
}

TEST_F(Depth, DeletionTakesEveryLevelAndNoNeighbour) {
  for (const unsigned level : {200u, 131u, 66u, 3u}) {
    add_levels("eth1", 200);
    EXPECT_EQ(0, del_class("eth1", middle_of(level)));
    EXPECT_NE(nullptr, class_find("eth1", first_of(level)));
    EXPECT_NE(nullptr, class_find("eth1", last_of(level)));
    for (unsigned below = level + 1; below <= 200; below++)
      for (const uint16_t gone : {first_of(below), middle_of(below), last_of(below)})
        EXPECT_EQ(nullptr, class_find("eth1", gone)) << gone;
    EXPECT_EQ(0, del_class("eth1", middle_of(2)));
    EXPECT_EQ("10,11(20,22),12", shape("eth1"));
    EXPECT_EQ(0, del_root_qdisc("eth1"));
  }
}

constexpr unsigned very_deep = 20000;

void add_chain(const char *ifname, unsigned levels) {
  trees::add_bare_htb(ifname);
  list_node *children = &root_qdisc_find_by_name(ifname)->classes;
  for (unsigned level = 1; level <= levels; level++)
    children = &add_below(ifname, children, static_cast<uint16_t>(level))->children;
}

TEST_F(Depth, TakesLittleStack) {
  add_chain("deep", very_deep);
  add_chain("flat", 1);
  using Work = void (*)(const char *ifname);
  const struct {
    const char *name;
    Work work;
  } walks[] = {{"do_leaf2cmd",
                [](const char *ifname) {
                  FILE *out = fopen("/dev/null", "we");
                  do_leaf2cmd(out, ifname, &root_qdisc_find_by_name(ifname)->classes);
                  fclose(out);
                }},
               {"class_find", [](const char *ifname) { class_find(ifname, UINT16_MAX); }},
               {"show_class",
                [](const char *ifname) {
                  const sandbox::UnopenableConsole silence;
                  show_class(ifname);
                }},
               {"del_root_qdisc", [](const char *ifname) { del_root_qdisc(ifname); }}};
  for (const auto &walk : walks)
    sandbox::expect_little_stack_per_level(
        walk.name, very_deep, [&] { walk.work("deep"); }, [&] { walk.work("flat"); });
}

} // namespace
