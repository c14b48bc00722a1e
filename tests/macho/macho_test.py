"""What a Mac and its clients will find in the daemon's executable.

Usage: macho_test.py EXECUTABLE SOURCES [TEST...]     or: macho_test.py --list
"""

import pathlib
import plistlib
import re
import sys
import tempfile
import unittest

import macho

EXECUTABLE, SOURCES = None, None  # set by main

CODE_SIGNING_REQUIREMENT = (
    'anchor apple generic and identifier "com.brisquell.app" and '
    'certificate leaf[subject.OU] = "K3QZ7T1VXB"')

LIBRARIES = [
    "/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation",
    "/System/Library/Frameworks/Foundation.framework/Versions/C/Foundation",
    "/System/Library/Frameworks/IOKit.framework/Versions/A/IOKit",
    "/usr/lib/libSystem.B.dylib",
    "/usr/lib/libobjc.A.dylib",
]

PRIVATE_HID_FUNCTIONS = [
    "IOHIDEventSystemClientCreate",
    "IOHIDEventSystemClientSetMatching",
    "IOHIDEventSystemClientCopyServices",
    "IOHIDServiceClientCopyProperty",
    "IOHIDServiceClientCopyEvent",
    "IOHIDEventGetFloatValue",
]

FAN_HELPER_PROTOCOL = [
    ("helperVersionWithReply:", 'v24@0:8@?<v@?@"NSString">16'),
    ("shutdownForUpgradeWithReply:", "v24@0:8@?<v@?>16"),
    ("setManualRPMWithFan:rpm:withReply:", "v40@0:8q16q24@?<v@?q>32"),
    ("setPercentWithFan:percent:withReply:", "v40@0:8q16d24@?<v@?q>32"),
    ("fullBlastWithReply:", "v24@0:8@?<v@?q>16"),
    ("automaticWithReply:", "v24@0:8@?<v@?q>16"),
    ("applyConfig:withReply:", 'v32@0:8@"NSData"16@?<v@?q>24'),
    ("restoreAutoWithReply:", "v24@0:8@?<v@?>16"),
    ("heartbeat", "v16@0:8"),
    ("readStateWithReply:", 'v24@0:8@?<v@?@"NSData">16'),
]

LISTENER_DELEGATE = [
    ("listener:shouldAcceptNewConnection:", 'B32@0:8@"NSXPCListener"16@"NSXPCConnection"24'),
]

# A class's own methods; inside the arguments only protocols tell more.
FAN_HELPER_SERVICE = [
    ("helperVersionWithReply:", "v24@0:8@?16"),
    ("shutdownForUpgradeWithReply:", "v24@0:8@?16"),
    ("setManualRPMWithFan:rpm:withReply:", "v40@0:8q16q24@?32"),
    ("setPercentWithFan:percent:withReply:", "v40@0:8q16d24@?32"),
    ("fullBlastWithReply:", "v24@0:8@?16"),
    ("automaticWithReply:", "v24@0:8@?16"),
    ("applyConfig:withReply:", "v32@0:8@16@?24"),
    ("restoreAutoWithReply:", "v24@0:8@?16"),
    ("heartbeat", "v16@0:8"),
    ("readStateWithReply:", "v24@0:8@?16"),
]

ACCEPTING_METHOD = ("listener:shouldAcceptNewConnection:", "B32@0:8@16@24")

# Whatever reaches standard error, except what stopProcess and require say of bugs: lines are put
# together from these when they are written, errors of the SMC inside others. Texts of one or two
# signs are left out.
LOG_TEXTS = [
    "failed to open AppleSMC: ",
    "startup Auto recovery failed: ",
    "listening on {} (build {})",
    "{}: restoring Auto...",
    "process exit",
    "SIGTERM",
    "SIGINT",
    "could not read FNum during startup recovery",
    "[AirflowLib] HID sensor hub unavailable ({}) — falling back to curated SMC temp keys.\n",
    "private API resolved but returned no plausible sensors",
    "private HID symbols did not resolve on this OS build",
    "failed to restore Auto: {}",
    "{}=0 failed ({})",
    "{}=0 rejected (SMC 0x{:x})",
    "AppleSMC IOKit service not found",
    "IOServiceOpen failed: {}",
    "SMC key not found: {}",
    "SMC error on key {}: result=0x{:x}",
    "{} failed: kern_return_t=0x{:x}",
    "not privileged (root required) for this SMC call",
    "IOConnectCallStructMethod",
    'a four-character code must be four bytes long, "{}" is {}',
    "Core Foundation has no memory left for an object",
]

LAUNCHD_LIST = {
    "Label": "com.brisquell.helper",
    "ProgramArguments": ["/Library/PrivilegedHelperTools/com.brisquell.helper"],
    "AssociatedBundleIdentifiers": ["com.brisquell.app"],
    "MachServices": {"com.brisquell.helper": True},
    "KeepAlive": {"SuccessfulExit": False},
    "ThrottleInterval": 1,
    "ExitTimeOut": 10,
    "ProcessType": "Interactive",
    "LegacyTimers": True,
    "StandardErrorPath": "/Library/Logs/com.brisquell.helper.log",
}


class MachO(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.executable = macho.Executable(EXECUTABLE)

    def assertOnce(self, text):
        self.assertEqual(self.executable.texts().count(text), 1, f"occurrences of {text!r}")

    def test_isAnExecutableForArm64Macs(self):
        self.assertIn("MH_MAGIC_64", self.executable.header)
        self.assertIn("ARM64", self.executable.header)
        self.assertIn("EXECUTE", self.executable.header)

    def test_runsOnMacOS13(self):
        self.assertEqual(self.executable.values("platform"), ["macos"])
        self.assertEqual(self.executable.values("minos"), ["13.0"])

    def test_isLoadedAtARandomAddress(self):
        self.assertIn("PIE", self.executable.header)

    def test_canBeToldFromOtherBuilds(self):
        [identifier] = self.executable.values("uuid")
        self.assertRegex(identifier, r"^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")
        self.assertNotEqual(identifier, "00000000-0000-0000-0000-000000000000")

    def test_endsWithASignature(self):
        commands = self.executable.values("cmd")
        self.assertEqual(commands.count("LC_CODE_SIGNATURE"), 1)
        begin, size = (int(self.executable.values(name)[-1]) for name in ("dataoff", "datasize"))
        self.assertEqual(begin + size, len(self.executable.bytes))
        self.assertEqual(self.executable.bytes[begin:begin + 4].hex(), "fade0cc0")  # not its hashes

    def test_searchesNoFoldersForLibraries(self):
        self.assertNotIn("LC_RPATH", self.executable.values("cmd"))

    def test_hasNoMemoryThatIsWritableAndExecutable(self):
        protections = self.executable.values("maxprot") + self.executable.values("initprot")
        self.assertIn("r-x", protections)
        for protection in protections:
            self.assertFalse("w" in protection and "x" in protection, protections)

    def test_linksTheExpectedLibraries(self):
        loads = [command for command in self.executable.commands if "DYLIB" in command[0]]
        names = [re.search(r"^name (\S+)", "\n".join(load), re.M).group(1) for load in loads]
        self.assertEqual(sorted(names), LIBRARIES)

    def imports(self):
        """Each imported symbol with the library that it is looked up in."""
        symbols = macho.output("llvm-nm-19", "-m", "--undefined-only", EXECUTABLE)
        return sorted(re.findall(r"^ *\(undefined\) external (\S+) \(from (\w+)\)$", symbols, re.M))

    def test_readsEveryImport(self):
        names = macho.output("llvm-nm-19", "--undefined-only", "--just-symbol-name", EXECUTABLE)
        self.assertEqual([symbol for symbol, _ in self.imports()], sorted(names.split()))

    def test_importsTheCommittedSymbols(self):
        committed = (pathlib.Path(__file__).parent / "imports.txt").read_text().splitlines()
        self.assertEqual([" ".join(pair) for pair in self.imports()], committed)

    def test_importsNoPrivateFunctionOfTheHIDEventSystem(self):
        self.assertEqual([name for name, _ in self.imports() if "IOHID" in name], [])

    def test_looksUpThePrivateFunctionsByName(self):
        for name in PRIVATE_HID_FUNCTIONS:
            self.assertOnce(name)
        self.assertOnce("/System/Library/Frameworks/IOKit.framework/IOKit")

    def test_publishesTheProtocolOfTheClients(self):
        self.assertEqual(self.executable.protocols()["FanHelperProtocol"], FAN_HELPER_PROTOCOL)

    def test_publishesTheDelegateOfTheListener(self):
        self.assertEqual(self.executable.protocols()["NSXPCListenerDelegate"], LISTENER_DELEGATE)

    def test_hasTheClassesOfTheBoundary(self):
        described = macho.output("llvm-objdump-19", "--macho", "--objc-meta-data", EXECUTABLE)
        classes = re.findall(
            r"^[0-9a-f]{16} 0x[0-9a-f]+ _OBJC_CLASS_\$_(\w+)\n"  # in the list of classes
            r".*?superclass \S+ _OBJC_CLASS_\$_(\w+)\n"
            r".*?count \d+\n\s+list\[0\] [^\n]*\n[^\n]*isa [^\n]*\n\s+name \S+ (\w+)",
            described, re.M | re.S)
        self.assertEqual(sorted(classes),
                         [("FanHelperService", "NSObject", "FanHelperProtocol"),
                          ("HelperListenerDelegate", "NSObject", "NSXPCListenerDelegate")])

    def test_theServiceHasEveryMethodOfItsProtocol(self):
        methods = self.executable.classes()["FanHelperService"]
        others = [method for method in methods if method[0].startswith("init")]
        self.assertEqual([method for method in methods if method not in others],
                         FAN_HELPER_SERVICE)
        self.assertEqual([selector for selector, _ in others], ["initWithService:"])

    def test_theDelegateHasTheMethodThatAcceptsConnections(self):
        self.assertIn(ACCEPTING_METHOD, self.executable.classes()["HelperListenerDelegate"])

    def test_asksForTheClientsSignature(self):
        self.assertOnce(CODE_SIGNING_REQUIREMENT)

    def test_namesTheMachService(self):
        self.assertOnce("com.brisquell.helper")

    def test_labelsTheSignalSafetyQueue(self):
        self.assertOnce("com.brisquell.helper.signal-safety")

    def test_hasEveryTextOfTheLog(self):
        for text in LOG_TEXTS:
            with self.subTest(text=text):
                self.assertOnce(text)

    def test_embedsAPropertyListThatAgreesWithTheBuildIdentity(self):
        embedded = plistlib.loads(self.executable.section("__TEXT", "__info_plist"))
        header = (SOURCES / "src/daemon/BuildIdentity.h").read_text()
        version = re.search(r'version = "(.*)";', header).group(1)
        build = re.search(r"build = (\d+);", header).group(1)
        self.assertEqual(embedded["CFBundleIdentifier"], "com.brisquell.helper")
        self.assertEqual(embedded["CFBundleShortVersionString"], version)
        self.assertEqual(embedded["CFBundleVersion"], build)
        self.assertEqual((version, build), ("1.0.3", "6"))
        self.assertOnce(f"{version}+{build}")

    def test_isBelowOneAndAHalfMegabytesWhenStripped(self):
        with tempfile.NamedTemporaryFile() as stripped:
            macho.output("llvm-strip-19", "-o", stripped.name, EXECUTABLE)
            self.assertLess(pathlib.Path(stripped.name).stat().st_size, 1_500_000)

    def test_isStartedByAListWithEveryKey(self):
        path = SOURCES / "packaging/macos/com.brisquell.helper.plist"
        self.assertEqual(plistlib.loads(path.read_bytes()), LAUNCHD_LIST)

    def test_leavesALogThatDoesNotGrowWithoutEnd(self):
        # Only files of this name are read in /etc/newsyslog.d.
        path = SOURCES / "packaging/macos/newsyslog.d/com.brisquell.helper.conf"
        text = path.read_bytes()
        self.assertTrue(text.isascii() and text.endswith(b"\n"))
        lines = [line for line in text.decode().splitlines() if not line.startswith("#")]
        self.assertEqual(len(lines), 1)
        # A path for a process id, or a signal, would follow the flags.
        log, owner, mode, count, kilobytes, when, flags = lines[0].split()
        self.assertEqual(log, LAUNCHD_LIST["StandardErrorPath"])
        self.assertEqual(owner, "root:wheel")
        self.assertEqual(int(mode, 8), 0o644)
        self.assertEqual((int(count), int(kilobytes), when), (3, 1000, "*"))
        self.assertEqual(flags, "N")


if __name__ == "__main__":
    if sys.argv[1:] == ["--list"]:
        print("\n".join(unittest.defaultTestLoader.getTestCaseNames(MachO)))
        sys.exit()
    EXECUTABLE, SOURCES = sys.argv[1], pathlib.Path(sys.argv[2])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
