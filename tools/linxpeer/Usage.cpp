#include "Usage.h"

#include "ItemRegistry.h"
#include "Messages.h"
#include "Scenario.h"

namespace {

const char kHead[] =
    "Usage: linxpeer [OPTIONS] [SCENARIO | -]\n"
    "       linxpeer [--capture FILE] --replay CAPTURE [--speed X|max]\n"
    "Plays other processes of the vehicle system over the IPC of the current LINX_DOMAIN:\n"
    "runs the SCENARIO file (or standard input for -), step by step, then exits.\n"
    "\n"
    "Options:\n"
    "  -n, --name NAME      run an endpoint under this process name (repeatable)\n"
    "  -p, --process N      the same by e_Process number (repeatable)\n"
    "  -v, --vehicle        play the state manager, the stream manager and all ten servers of\n"
    "                       the metadata manager (ConfigMgr 10,7,11,12,13; FpgaHal 17; GpsHal 1;\n"
    "                       StateMgr 1-4; RadarHal 1; MicMgr 0; AccelHal 1; VideoMgr 0,1;\n"
    "                       TempHal 0; ExternalMgr 16-21) with default values, before the\n"
    "                       scenario's steps\n"
    "  -t, --timeout MS     how long expect, subscribers, watchdog and shm wait by default\n"
    "                       (5000); with --replay, how long each received message may take\n"
    "  -c, --capture FILE   write every message the roles send and receive to FILE\n"
    "  -r, --replay FILE    play a capture (of --capture, or of mdstore traffic) into a fresh\n"
    "                       process instead of a scenario: what the roles sent is sent again,\n"
    "                       what they received is waited for before the lines after it\n"
    "  -x, --speed X|max    replay X times faster than captured (default 1), or max: each\n"
    "                       line as soon as the messages before it have arrived\n"
    "  -h, --help           this text\n"
    "      --version        the project's version\n"
    "Without a scenario it serves until SIGINT or SIGTERM. Roles are polled in turn on one\n"
    "thread. Exit status: 0 all steps passed (or stopped by a signal without a scenario), 1 an\n"
    "expectation failed, 2 bad usage or a step that could not be carried out.\n"
    "\n"
    "Output, one line each:\n"
    "  recv ROLE <- SENDER TYPE [NAME] len=N [FIELDS] [CLASS FIELD=VALUE...] [hex=BYTES]\n"
    "  sent ROLE -> DEST TYPE [NAME] len=N [FIELDS] [hex=BYTES]\n"
    "  step SOURCE:LINE: TEXT       before each step\n"
    "  ok #N                        an expect took received message N\n"
    "  FAIL SOURCE:LINE: TEXT       the failing step, then what was received instead\n"
    "  error SOURCE:LINE: MESSAGE   a step that could not be carried out\n"
    "FIELDS are printed as checks (u32@0=19 text@0=abc) for the known message types.\n"
    "\n"
    "Scenario language: one step per line; words are separated by blanks, \"...\" keeps blanks\n"
    "inside a word, # starts a comment.\n"
    "  PROCESS, DEST, SENDER, ROLE, SERVER: an endpoint name (StateMgr, MetadataMgr, FpgaHal,\n"
    "      ...) or an e_Process number.\n"
    "  TYPE: a message number (decimal or 0x hex) or a name from the table below.\n"
    "  CHECK: u8@OFF=N u16@OFF=N u32@OFF=N i8@OFF=N i16@OFF=N i32@OFF=N text@OFF=TEXT\n"
    "      hex@OFF=AABB len=N, or FIELD=VALUE of an item decoded from a subscription's notice;\n"
    "      OFF is decimal or 0x hex; numbers are in the machine's own byte order. Where a u32\n"
    "      or an item's tick is given, \"now\" is this machine's system tick at that step.\n"
    "  MS: milliseconds.\n"
    "\n"
    "Steps:\n";

}  // namespace

std::string UsageText() {
    std::string text = kHead;
    text += Scenario::Reference();
    text += "\nMessage types (name, number, payload fields):\n";
    text += messages::Table();
    text += "\nItem classes and their fields (serve, push, subscribe):\n";
    for (const ItemClass& itemClass : items::All()) {
        std::string line = "  " + itemClass.name + ":";
        for (const ItemField& field : itemClass.fields) {
            if (line.size() + field.name.size() + 1 > 98) {
                text += line + "\n";
                line = "     ";
            }
            line += " " + field.name;
        }
        text += line + "\n";
    }
    text +=
        "  (MicStatusResponse mics=POSITION:PRESENT:ACTIVE,... ; bools are 0/1/true/false)\n"
        "\n"
        "Example: play the state manager for a process and check its handshake\n"
        "  statemgr flag=1\n"
        "  expect Started from MetadataMgr within 20000 u32@0=19\n"
        "  expect Subscribed from MetadataMgr u8@0=1\n"
        "  send as StateMgr MetadataMgr Bookmark u32:1234\n"
        "  quit MetadataMgr\n"
        "  expect ShutdownResponse from MetadataMgr\n";
    return text;
}
