#include "gateway/live/ruleset.h"

#include "gateway/live/table_sets.h"

namespace gateway {
namespace {

std::string nameOf(const LiveConfig& config) {
    return "ip " + config.table;
}

// A rule for each inside interface: names with a wildcard cannot stand in a set.
std::string forEachInside(const LiveConfig& config, const std::string& before,
                          const std::string& after) {
    std::string rules;
    for (const std::string& name : config.inside) {
        rules.append("    ").append(before).append(" \"").append(name).append("\" ").append(after);
        rules += '\n';
    }
    return rules;
}

std::string ownAddresses(const LiveConfig& config, uint32_t publicAddress) {
    const std::string own = toText(publicAddress);
    return config.advertisedAddress == 0 || config.advertisedAddress == publicAddress
               ? own
               : "{ " + own + ", " + toText(config.advertisedAddress) + " }";
}

// What private hosts send to each other, or to the router itself, is not for the module.
std::string stayingRules(const LiveConfig& config) {
    return "    fib daddr type != unicast return\n" +
           forEachInside(config, "fib daddr oifname", "return");
}

// To look up where a packet goes costs more than to see that it is none of ours.
//
// Anybody may make a private host answer that he knocks, under any address. Answers beyond a number
// that callers do not reach are not shown: the queue is for those who speak, and a connection whose
// answer was not seen is followed from its first message on.
std::string sentRules(const LiveConfig& config) {
    const std::string media = "    ip saddr . udp sport @media_hosts goto media_sent\n";
    if (config.queueScope == QueueScope::All) {
        return media + "    meta l4proto { tcp, udp } goto outward\n";
    }
    return media + "    udp dport { 1718, 1719 } goto outward\n"
                   "    ip saddr . udp sport @ras_hosts goto outward\n"
                   "    tcp dport 1720 goto outward\n"
                   "    ip daddr . tcp dport @expected goto outward\n"
                   "    ip saddr . tcp sport @listening tcp flags & (syn | rst) != 0"
                   " limit rate over 200/second burst 300 packets return\n"
                   "    ip saddr . tcp sport @listening goto outward\n";
}

std::string mediaSentRules(const LiveConfig& config) {
    return stayingRules(config) +
           "    update @active { ip saddr . udp sport }\n"
           "    update @peers { ip saddr . udp sport . ip daddr }\n" +
           (config.queueScope == QueueScope::All ? "    goto to_module\n" : "");
}

// What comes from outside is shown as an answer to a private host, or once the connection is
// established: a SYN, or an answer to nothing, may come from anybody under any address.
std::string receivedRules(const LiveConfig& config) {
    if (config.queueScope == QueueScope::All) {
        return "    meta l4proto { tcp, udp } goto inward\n";
    }
    return "    udp dport @ras_in goto inward\n"
           "    udp sport { 1718, 1719 } ct direction reply goto inward\n"
           "    meta l4proto != tcp return\n"
           "    ct state != established return\n"
           "    ct direction reply tcp sport { 1503, 1720 } goto inward\n"
           "    ct direction reply ip saddr . tcp sport @expected goto inward\n"
           "    ct direction original tcp dport @answering goto inward\n";
}

// RTP of a flow that has gone both ways for some seconds has nothing more to tell, but that it goes
// on: every 32nd packet, by its sequence number, does that. Each comparison costs every packet, so
// they are few: version, no contributing sources, no marker. RTCP has the marker's bit. A RAS
// message looks like that only if it is a RequestInProgress, which comes from RAS's port.
std::string streamRule(const LiveConfig& config) {
    constexpr uint32_t leastIdle = 60; // one RTP packet a second is heard of within it
    if (config.queueScope == QueueScope::All || config.mediaIdle < leastIdle ||
        config.callIdle < leastIdle) {
        return "";
    }
    return "    ip protocol udp ct status assured @th,64,16 & 0xef80 == 0x8000"
           " @th,80,16 & 0x1f != 0 udp sport != 1719 accept\n";
}

// An acknowledgement without payload tells the module nothing, and every second packet is one.
std::string queueRules() {
    const std::string bare = "    tcp flags & (fin | syn | rst | ack) == ack ip hdrlength 5 ";
    return bare + "tcp doff 5 ip length 40 return\n" + bare + "tcp doff 8 ip length 52 return\n" +
           "    counter name shown\n";
}

// Private hosts may use the public address as well.
std::string forwardRules(const LiveConfig& config, uint32_t publicAddress) {
    const std::string own = ownAddresses(config, publicAddress);
    return forEachInside(config, "iifname", "ip daddr " + own + " goto hairpin_arriving") +
           "    iifname != \"" + config.outside + "\" return\n" +
           "    fib daddr type != local return\n"
           "    dnat ip to udp dport map @media_in\n"
           "    dnat ip to tcp dport map @control_in\n";
}

std::string hairpinRules() {
    return "    meta l4proto { tcp, udp } update @hairpin { ip saddr . th sport }\n"
           "    dnat ip to udp dport map @media_in\n"
           "    dnat ip to tcp dport map @control_in\n";
}

// Once a private host has sent media from a port, only those to whom it sends may send to it. What
// it has answered came from one of these, so only flows that it did not answer are looked at: their
// first packet when it is translated, later ones, of which the private endpoint is known, on
// arrival.
std::string guardRule(const LiveConfig& config, const std::string& flow,
                      const std::string& endpoint) {
    return config.mediaSource == MediaSource::Any ? ""
                                                  : "    " + flow + " " + endpoint + " @active " +
                                                        endpoint + " . ip saddr != @peers drop\n";
}

std::string leavingRules(const LiveConfig& config) {
    const std::string hairpin = "ip saddr . th sport @hairpin ";
    return guardRule(config, "iifname \"" + config.outside + "\"", "ip daddr . udp dport") +
           "    oifname \"" + config.outside +
           "\" snat ip to ip saddr . udp sport map @media_out\n" +
           forEachInside(config, "oifname",
                         hairpin + "snat ip to ip saddr . udp sport map @media_out") +
           forEachInside(config, "oifname", hairpin + "masquerade");
}

std::string chain(const std::string& name, const std::string& hook, const std::string& rules) {
    return "  chain " + name + " {\n" + (hook.empty() ? "" : "    " + hook + "\n") + rules +
           "  }\n";
}

std::string definitions() {
    std::string text;
    for (const TableSet& set : tableSets()) {
        text += "  " + std::string(set.isMap ? "map " : "set ") + set.name + " { type " + set.type +
                "; }\n";
    }
    const std::string dynamic = " flags dynamic,timeout; ";
    const std::string lasting =
        dynamic + "size 65536; timeout " + std::to_string(activeTimeout) + "s; }\n";
    return text + "  set " + activeSet + " { type ipv4_addr . inet_service;" + lasting +
           "  set peers { type ipv4_addr . inet_service . ipv4_addr;" + lasting +
           "  set hairpin { type ipv4_addr . inet_service;" + dynamic +
           "size 4096; timeout 1m; }\n"
           "  counter shown { }\n"
           "  counter copied { }\n";
}

// Anybody can write the peer's address into a datagram: it must come by the interface that leads to
// the peer.
std::string feedRule(const LiveConfig& config) {
    return config.feedFrom.port == 0
               ? ""
               : "    ip saddr " + toText(config.feedTo.address) + " udp dport " +
                     std::to_string(config.feedFrom.port) + " fib saddr . iif oif missing drop\n";
}

// No packet ever comes here: a rule that asks for counts makes the kernel count.
std::string countingRule(const LiveConfig& config) {
    return config.countPackets ? "    ct original packets 0 return\n" : "";
}

struct Chain {
    const char* name;
    const char* hook;
    std::string rules;
};

// In the order in which one refers to another. A dry run shows packets to the module and translates
// nothing.
std::vector<Chain> chainsOf(const LiveConfig& config, uint32_t publicAddress) {
    const std::string answers = guardRule(config, "meta l4proto udp ct state new",
                                          "ct reply ip saddr . ct reply proto-src");
    std::vector<Chain> chains = {
        {"media_sent", "", mediaSentRules(config)},
        {"outward", "", stayingRules(config) + "    goto to_module\n"},
        {"inward", "", "    fib daddr type != local return\n    goto to_module\n"},
        {"sent", "", sentRules(config)},
        {"received", "", (config.dryRun ? "" : answers) + receivedRules(config)},
        {"classify", "type filter hook prerouting priority dstnat - 10; policy accept;",
         streamRule(config) + forEachInside(config, "iifname", "goto sent") + "    iifname \"" +
             config.outside + "\" goto received\n"}};
    if (!config.dryRun) {
        const std::vector<Chain> translating = {
            {"counting", "", countingRule(config)},
            {"feeding", "type filter hook input priority filter; policy accept;", feedRule(config)},
            {"hairpin_arriving", "", hairpinRules()},
            {"arriving", "type nat hook prerouting priority dstnat - 5; policy accept;",
             forwardRules(config, publicAddress)},
            {"leaving", "type nat hook postrouting priority srcnat - 5; policy accept;",
             leavingRules(config)},
            {"masquerading", "type nat hook postrouting priority srcnat + 5; policy accept;",
             config.masquerade ? "    oifname \"" + config.outside + "\" masquerade\n" : ""}};
        chains.insert(chains.end(), translating.begin(), translating.end());
    }
    return chains;
}

} // namespace

std::string renderRuleset(const LiveConfig& config, uint32_t publicAddress, Transition transition) {
    const std::string table = nameOf(config);
    const std::vector<Chain> chains = chainsOf(config, publicAddress);
    std::string text;
    if (transition == Transition::Replace) {
        text = "add table " + table + "\ndelete table " + table + "\n";
    } else {
        for (const Chain& renewed : chains) {
            text += "flush chain " + table + " " + renewed.name + "\n";
        }
    }
    text += "table " + table + " {\n" + definitions();
    if (transition == Transition::Replace) {
        text += chain(queueChain, "", queueRules());
    }
    for (const Chain& each : chains) {
        text += chain(each.name, each.hook, each.rules);
    }
    return text + "}\n";
}

std::string renderEmptySets(const LiveConfig& config) {
    std::string text;
    for (const TableSet& set : tableSets()) {
        text += std::string("flush ") + (set.isMap ? "map " : "set ") + nameOf(config) + " " +
                set.name + "\n";
    }
    return text;
}

// A longer one holds more than headers, and what is behind it must wait for it.
std::string renderCopyRule(const LiveConfig& config) {
    return "insert rule " + nameOf(config) + " " + queueChain +
           " tcp flags & (fin | syn | rst) == syn ip length <= 120 counter name copied log group " +
           std::to_string(config.queueNumber) + " return\n";
}

std::string renderQueueStatement(const LiveConfig& config) {
    return "add rule " + nameOf(config) + " " + queueChain + " queue flags bypass to " +
           std::to_string(config.queueNumber) + "\n";
}

} // namespace gateway
