#!/usr/bin/python3
"""Looks a program for macOS over, without running it:

    tools/macos/inspection.py PROGRAM...

Says what is not as it has to be, and ends with status 1 if there is something. What the system has
to supply is listed in tools/macos/imports, which a person has read: a symbol that links may be newer
than the system that the program is for.
"""

import os
import re
import sys

import macho

FOLDER = os.path.dirname(os.path.abspath(__file__))
# Where the build makes the property lists.
MADE = f"{FOLDER}/../../build/macos/corvane-helper/vnt"
HELPER = "com.corvane.system.privilegedhelper-vnt"
MINIMUM, SDK = "10.13", "11.0"
SYSTEM_LIBRARY = "/usr/lib/libSystem.B.dylib"
PROPERTY_LISTS = {"__info_plist": "Info.plist", "__launchd_plist": "launchd.plist"}

# What goes over connections: the methods in their order, with the types that the system's library
# decodes messages by. What is optional comes last.
ENDPOINT, VERSION = 'v@:@?<v@?@"NSXPCListenerEndpoint">', 'v@:@?<v@?@"NSString">'
PERFORM = 'v@:Q@"NSData"@"NSXPCListenerEndpoint"@"NSArray"@?<v@?@"NSError">'
PROTOCOLS = {
    "ZELPrivilegedHelperProtocol": ([
        ("connectWithEndpointUsingReply:", ENDPOINT),
        ("getVersionStringUsingReply:", VERSION),
        ("registerClientWithPID:", "v@:i"),
        ("unregisterClientWithPID:", "v@:i"),
        ("performPrivilegedOperation:withAuthorizationData:feedbackEndpoint:arguments:usingReply:",
         PERFORM),
    ], [("enableDebugMode:", "v@:c")], []),
    "ZELPrivilegedHelperControl": ([
        ("cancelOperation:usingReply:", 'v@:@"NSString"@?<v@?c>'),
        ("queryAuthorization:withAuthorizationData:usingReply:",
         'v@:Q@"NSData"@?<v@?@"NSString"@"NSError">'),
    ], [], []),
    "ZELPrivilegedHelperService": (
        [], [], ["ZELPrivilegedHelperProtocol", "ZELPrivilegedHelperControl"]),
    "ZELPrivilegedOperationFeedbackProtocol": (
        [("processPrivilegedOperationFeedback:", 'v@:@"NSDictionary"')], [], []),
}
# The class that serves a protocol, by program.
SERVED = {
    HELPER: {"ZELExportedHelper": "ZELPrivilegedHelperService"},
    "privilegerequestor-vnt": {"ZELFeedbackReceiver": "ZELPrivilegedOperationFeedbackProtocol"},
}


def known_imports():
    """The symbols that were read, by their library."""
    library, known = None, set()
    with open(f"{FOLDER}/imports", encoding="utf-8") as file:
        for line in file.read().splitlines():
            if line.startswith("/"):
                library = line
            elif line and not line.startswith("#"):
                known.update((library, symbol) for symbol in line.split())
    return known


def faults_of_kind(image, _):
    if image.kind != macho.MH_EXECUTE or image.platform != macho.PLATFORM_MACOS:
        yield "it is no program for macOS"
    if (image.minimum, image.sdk) != (MINIMUM, SDK):
        yield f"it is for {image.minimum}, with the SDK {image.sdk}"
    if image.has_chained_fixups:
        yield "it has fixups that its system does not know"


def faults_of_protection(image, _):
    if not image.flags & macho.MH_PIE:
        yield "it cannot be loaded at another address"
    if not image.flags & macho.MH_TWOLEVEL:
        yield "it takes symbols of whatever library has them"
    for segment in image.segments:
        allowed = segment.protection | segment.maximum_protection
        if allowed & macho.WRITE and allowed & macho.EXECUTE:
            yield f"{segment.name} can be written and executed"
        if segment.name == "__TEXT" and segment.protection != macho.READ | macho.EXECUTE:
            yield "__TEXT is not read and execute"
    if image.rpaths:
        yield "it looks for libraries where it is told to"


def faults_of_libraries(image, _):
    for library in image.libraries:
        if not re.fullmatch(r"/usr/lib/[^/]+\.dylib|/System/Library/Frameworks/"
                            r"(\w+)\.framework/Versions/[A-C]/\1", library):
            yield f"{library} is not the system's"
    if image.libraries[:1] != [SYSTEM_LIBRARY]:
        yield "the system's library does not come first"


def faults_of_imports(image, _):
    for library, symbol in sorted(image.imports() - known_imports()):
        yield f"nobody has read whether {library} has {symbol} in {MINIMUM}"


def faults_of_canary(image, _):
    for symbol in ("___stack_chk_guard", "___stack_chk_fail"):
        if (SYSTEM_LIBRARY, symbol) not in image.imports():
            yield f"{symbol} is not the system's"
        if symbol in image.defined_symbols():
            yield f"{symbol} is its own"


def faults_of_property_lists(image, name):
    for section, file_name in PROPERTY_LISTS.items():
        content = image.content_of("__TEXT", section)
        if name != HELPER:
            if content is not None:
                yield f"it has a section {section}"
            continue
        with open(f"{MADE}/{file_name}", "rb") as file:
            if content != file.read():
                yield f"its section {section} is not {file_name}"


def faults_of_classes(image, _):
    pointer = 8
    for found in image.classes().values():
        if found.superclass != "NSObject":
            yield f"{found.name} is a {found.superclass}"
        if found.start < pointer:
            yield f"{found.name} begins within the class pointer, at {found.start}"
        end = pointer
        for name, offset, size in found.fields:
            if offset < end:
                yield f"{found.name} has {name} at {offset}, over what comes before"
            end = offset + size
        if end > found.size:
            yield f"{found.name} has {end} bytes of fields, and {found.size} in all"


def without_offsets(types):
    """The types of a method without the places that its arguments had on a stack."""
    return re.sub(r'("[^"]*")|\d+', lambda found: found[1] or "", types or "none")


def faults_of_protocols(image, name):
    protocols, classes = image.protocols(), image.classes()

    def methods_of(protocol):
        found = protocols[protocol]
        for adopted in found.adopted:
            yield from methods_of(adopted)
        yield from (selector for selector, _ in found.required + found.optional)

    for found in protocols.values():
        if not found.name.startswith("ZEL"):
            continue
        if found.name not in PROTOCOLS:
            yield f"{found.name} is a protocol that nobody asked for"
            continue
        required, optional, adopted = PROTOCOLS[found.name]
        for kind, are, ought in (("methods", found.required, required),
                                 ("optional methods", found.optional, optional)):
            are = [(selector, without_offsets(types)) for selector, types in are]
            if are != ought:
                yield f"the {kind} of {found.name} are {are}"
        if found.adopted != adopted:
            yield f"{found.name} adopts {found.adopted}"
    for class_name, protocol in SERVED[name].items():
        found = classes.get(class_name)
        if found is None or protocol not in found.protocols or protocol not in protocols:
            yield f"{class_name} does not serve {protocol}"
            continue
        for selector in methods_of(protocol):
            if selector not in found.selectors:
                yield f"{class_name} has no {selector}"


CHECKS = (faults_of_kind, faults_of_protection, faults_of_libraries, faults_of_imports,
          faults_of_canary, faults_of_property_lists, faults_of_classes, faults_of_protocols)


def faults(content, name):
    """What is wrong with the program of this name and content."""
    try:
        image = macho.Image(content)
        return [fault for check in CHECKS for fault in check(image, name)]
    except macho.NotMachO as error:
        return [str(error)]


def main():
    found = False
    for path in sys.argv[1:]:
        with open(path, "rb") as file:
            for fault in faults(file.read(), os.path.basename(path)):
                found = True
                print(f"{path}: {fault}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
