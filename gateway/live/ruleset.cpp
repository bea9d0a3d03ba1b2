#include "gateway/live/ruleset.h"

namespace gateway {
namespace {

const std::string table = std::string("ip ") + tableName;

std::string concatenated(const Endpoint& endpoint) {
    return toText(endpoint.address) + " . " + std::to_string(endpoint.port);
}

// Which packets of private hosts can matter. A call announces its H.245 address in a message, and
// that address may belong to anybody; so while a private host has a call, its other TCP connections
// are shown to the gateway until their first payload tells what they are.
std::string sentRules(const LiveConfig& config) {
    std::string rules = "    fib daddr type != unicast return\n"
                        "    fib daddr oifname != \"" +
                        config.outside + "\" return\n";
    if (config.queueScope == QueueScope::All) {
        return rules + "    meta l4proto { tcp, udp } goto to_module\n";
    }
    rules += "    udp sport 1719 goto to_module\n"
             "    meta l4proto != tcp return\n"
             "    tcp dport 1720 update @callers { ip saddr }\n"
             "    tcp dport 1720 goto to_module\n";
    if (config.publishedHost != 0) {
        const std::string published =
            "    ip saddr " + toText(config.publishedHost) + " tcp sport 1720 ";
        rules += published + "update @callers { ip saddr }\n" + published + "goto to_module\n";
    }
    return rules + "    ip saddr != @callers return\n"
                   "    ip saddr . tcp sport . ip daddr . tcp dport @foreign return\n"
                   "    goto to_module\n";
}

std::string receivedRules(const LiveConfig& config) {
    std::string rules = "    fib daddr type != local return\n";
    if (config.queueScope == QueueScope::All) {
        return rules + "    meta l4proto { tcp, udp } goto to_module\n";
    }
    rules += "    tcp sport { 1503, 1720 } goto to_module\n";
    if (config.publishedHost != 0) {
        rules += "    tcp dport 1720 goto to_module\n";
    }
    return rules;
}

std::string forwardRules(const LiveConfig& config, uint32_t publicAddress) {
    const std::string match =
        "    iifname \"" + config.outside + "\" ip daddr " + toText(publicAddress) + " ";
    std::string rules = match + "dnat ip to udp dport map @media_in\n" + match +
                        "dnat ip to tcp dport map @control_in\n";
    if (config.publishedHost != 0) {
        rules += match + "tcp dport " + (config.publishT120 ? "{ 1503, 1720 }" : "1720") +
                 " dnat to " + toText(config.publishedHost) + "\n";
    }
    return rules;
}

std::string chain(const std::string& name, const std::string& hook, const std::string& rules) {
    return "  chain " + name + " {\n" + (hook.empty() ? "" : "    " + hook + "\n") + rules +
           "  }\n";
}

std::string definitions() {
    return "  set callers {\n"
           "    type ipv4_addr; flags dynamic,timeout; size 4096; timeout 4h;\n"
           "  }\n"
           "  set foreign {\n"
           "    type ipv4_addr . inet_service . ipv4_addr . inet_service;\n"
           "    flags timeout; size 16384; timeout 10m;\n"
           "  }\n"
           "  counter shown { }\n"
           "  map media_in { type inet_service : ipv4_addr . inet_service; }\n"
           "  map media_out { type ipv4_addr . inet_service : ipv4_addr . inet_service; }\n"
           "  map control_in { type inet_service : ipv4_addr . inet_service; }\n";
}

// A dry run shows packets to the module and translates nothing.
std::string chains(const LiveConfig& config, uint32_t publicAddress) {
    const std::string hook = "type filter hook prerouting priority dstnat - 10; policy accept;";
    const std::string classify = "    iifname \"" + config.inside + "\" goto sent\n    iifname \"" +
                                 config.outside + "\" goto received\n";
    std::string text =
        chain(queueChain, "", "    counter name shown\n") + chain("sent", "", sentRules(config)) +
        chain("received", "", receivedRules(config)) + chain("classify", hook, classify);
    if (config.dryRun) {
        return text;
    }
    const std::string outside = "    oifname \"" + config.outside + "\" ";
    return text +
           chain("arriving", "type nat hook prerouting priority dstnat - 5; policy accept;",
                 forwardRules(config, publicAddress)) +
           chain("leaving", "type nat hook postrouting priority srcnat - 5; policy accept;",
                 outside + "snat ip to ip saddr . udp sport map @media_out\n") +
           chain("masquerading", "type nat hook postrouting priority srcnat + 5; policy accept;",
                 config.masquerade ? outside + "masquerade\n" : "");
}

std::string refreshCommands(const LiveConfig& config) {
    std::string text;
    for (const char* name : {"sent", "received", "classify"}) {
        text += "flush chain " + table + " " + name + "\n";
    }
    if (!config.dryRun) {
        for (const char* name : {"arriving", "leaving", "masquerading"}) {
            text += "flush chain " + table + " " + name + "\n";
        }
    }
    for (const char* name : {"media_in", "media_out", "control_in"}) {
        text += "flush map " + table + " " + name + "\n";
    }
    return text;
}

std::string elementCommand(const char* command, const char* map, const std::string& elements) {
    return elements.empty()
               ? ""
               : std::string(command) + " element " + table + " " + map + " { " + elements + " }\n";
}

void append(std::string& list, const std::string& element) {
    list += (list.empty() ? "" : ", ") + element;
}

} // namespace

std::string renderRuleset(const LiveConfig& config, uint32_t publicAddress,
                          std::span<const PortForward> forwards, Transition transition) {
    std::string text = transition == Transition::Replace
                           ? "add table " + table + "\ndelete table " + table + "\n"
                           : refreshCommands(config);
    text += "table " + table + " {\n" + definitions() + chains(config, publicAddress) + "}\n";
    return text + renderAddition(publicAddress, forwards);
}

std::string renderAddition(uint32_t publicAddress, std::span<const PortForward> forwards) {
    std::string mediaIn;
    std::string mediaOut;
    std::string controlIn;
    for (const PortForward& forward : forwards) {
        append(forward.protocol == Protocol::Udp ? mediaIn : controlIn,
               std::to_string(forward.publicPort) + " : " + concatenated(forward.inside));
        if (forward.leaveFromPublicPort) {
            append(mediaOut, concatenated(forward.inside) + " : " +
                                 concatenated({publicAddress, forward.publicPort}));
        }
    }
    return elementCommand("add", "media_in", mediaIn) +
           elementCommand("add", "media_out", mediaOut) +
           elementCommand("add", "control_in", controlIn);
}

std::string renderRemoval(std::span<const PortForward> forwards) {
    std::string mediaIn;
    std::string mediaOut;
    std::string controlIn;
    for (const PortForward& forward : forwards) {
        append(forward.protocol == Protocol::Udp ? mediaIn : controlIn,
               std::to_string(forward.publicPort));
        if (forward.leaveFromPublicPort) {
            append(mediaOut, concatenated(forward.inside));
        }
    }
    return elementCommand("delete", "media_in", mediaIn) +
           elementCommand("delete", "media_out", mediaOut) +
           elementCommand("delete", "control_in", controlIn);
}

std::string renderForeign(const Endpoint& inside, const Endpoint& remote) {
    return elementCommand("add", "foreign", concatenated(inside) + " . " + concatenated(remote));
}

std::string renderQueueStatement(uint16_t queueNumber) {
    return "add rule " + table + " " + queueChain + " queue flags bypass to " +
           std::to_string(queueNumber) + "\n";
}

} // namespace gateway
