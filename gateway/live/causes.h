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
    X(packetsUnseen, "packets_unseen",                                                             \
      "packets that passed unseen: neither TCP nor UDP, or of "                                    \
      "another interface")                                                                         \
    X(packetsMalformed, "packets_malformed", "packets with contradictory lengths, passed unseen")  \
    X(queueOverruns, "queue_overruns", "reports of the kernel that packets came too fast")         \
    X(queuePassedBy, "queue_passed_by", "packets that the kernel could not queue")                 \
    X(verdictErrors, "verdict_errors", "verdicts that the kernel did not take")                    \
    X(messagesSigned, "messages_signed",                                                           \
      "messages with H.235 signatures that were rewritten: their receiver may refuse them")        \
    X(addressesLeft, "addresses_left", "addresses of private hosts that left in messages")         \
    X(segmentsHeld, "segments_held", "segments kept until the rest of their message came")         \
    X(segmentsHeldInVain, "segments_held_in_vain",                                                 \
      "of these, segments that went on before the rest came")                                      \
    X(segmentsRepeated, "segments_repeated", "repetitions of such segments, dropped")              \
    X(connectionsAdopted, "connections_adopted",                                                   \
      "connections older than the gateway that it follows")                                        \
    X(connectionsUnknown, "connections_unknown",                                                   \
      "connections that the gateway saw first within a message")                                   \
    X(callsStarted, "calls_started", "calls, from their Setup on")                                 \
    X(callsEnded, "calls_ended", "calls that ended")                                               \
    X(callsMissed, "calls_missed", "calls that the module does not follow")                        \
    X(callsUntranslated, "calls_untranslated", "calls that no rule of the machine translates")     \
    X(helperSeen, "helper_seen", "calls that the kernel's own H.323 helper works on as well")      \
    X(mappingsOpened, "mappings_opened", "mappings opened for media, RAS and H.245")               \
    X(mappingsReused, "mappings_reused", "requests answered with a mapping that was open already") \
    X(mappingsAdopted, "mappings_adopted",                                                         \
      "mappings taken over from an earlier run, or heard from the second router")                  \
    X(mappingsEnded, "mappings_ended", "mappings closed after their call or for silence")          \
    X(refusedPorts, "refused_ports", "mappings refused: no free port in the range")                \
    X(refusedHostLimit, "refused_host_limit", "mappings refused: the private host has too many")   \
    X(refusedForeignAddress, "refused_foreign_address",                                            \
      "mappings refused: the address announced is not the sender's")                               \
    X(refusedLowPort, "refused_low_port",                                                          \
      "mappings refused: the private port is below lowest-inside-port")                            \
    X(refusedKernel, "refused_kernel", "mappings refused: nftables did not take them")             \
    X(tableRemade, "table_remade", "times that the nftables table had to be made again")           \
    X(flowRecordsShort, "flow_records_short", "flows not followed: all flow records in use")       \
    X(flowsRemoved, "flows_removed", "tracked connections removed with their mapping")             \
    X(logSuppressed, "log_suppressed", "log lines left out to keep the log readable")
