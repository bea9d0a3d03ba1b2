#pragma once

// Everything that the gateway counts, in one list: it feeds the counters, the log, the status, the
// metrics and the test that compares the manual page with the program. Member, name, description.
#define H323NAT_GATEWAY_CAUSES(X)                                                                  \
    X(packetsReceived, "packets_received", "packets from outside that the module looked at")       \
    X(packetsSent, "packets_sent", "packets of private hosts that the module looked at")           \
    X(packetsRewritten, "packets_rewritten", "packets whose payload the module changed")           \
    X(messagesSeen, "messages_seen", "H.323 messages in these packets")                            \
    X(messagesRewritten, "messages_rewritten", "messages in which an address was replaced")        \
    X(messagesUndecodable, "messages_undecodable", "messages that no codec reads, passed on")      \
    X(messagesRepeated, "messages_repeated", "messages sent again and rewritten again")            \
    X(packetsUnseen, "packets_unseen",                                                             \
      "packets that passed unseen: neither TCP nor UDP, or of "                                    \
      "another interface")                                                                         \
    X(packetsMalformed, "packets_malformed", "packets with contradictory lengths, passed unseen")  \
    X(queueOverruns, "queue_overruns", "reports of the kernel that packets came too fast")         \
    X(queuePassedBy, "queue_passed_by", "packets that the kernel could not queue")                 \
    X(verdictErrors, "verdict_errors", "verdicts that the kernel did not take")                    \
    X(foreignConnections, "foreign_connections",                                                   \
      "connections of a calling host that turned out "                                             \
      "not to be H.245, left to the kernel")                                                       \
    X(callsStarted, "calls_started", "call-signalling connections that were accepted")             \
    X(callsEnded, "calls_ended", "call-signalling connections that ended")                         \
    X(callsUntranslated, "calls_untranslated", "calls that no rule of the machine translates")     \
    X(helperSeen, "helper_seen", "calls that the kernel's own H.323 helper works on as well")      \
    X(mappingsOpened, "mappings_opened", "mappings opened for media, RAS and H.245")               \
    X(mappingsReused, "mappings_reused", "requests answered with a mapping that was open already") \
    X(mappingsAdopted, "mappings_adopted", "mappings taken over from a run that did not end well") \
    X(mappingsEnded, "mappings_ended", "mappings closed after their call or for silence")          \
    X(refusedPorts, "refused_ports", "mappings refused: no free port in the range")                \
    X(refusedHostLimit, "refused_host_limit", "mappings refused: the private host has too many")   \
    X(refusedForeignAddress, "refused_foreign_address",                                            \
      "mappings refused: the address announced is not the sender's")                               \
    X(refusedKernel, "refused_kernel", "mappings refused: nftables did not take them")             \
    X(flowRecordsShort, "flow_records_short", "flows not followed: all flow records in use")       \
    X(flowsRemoved, "flows_removed", "tracked connections removed with their mapping")             \
    X(logSuppressed, "log_suppressed", "log lines left out to keep the log readable")
