// The property lists of the program, byte for byte, each in a section of its own:
//   objcopy --dump-section __TEXT,__info_plist=Info.plist PROGRAM
// Compiled for each program, with INFO_PLIST and LAUNCHD_PLIST as the paths of its lists.

asm(R"(
    .pushsection "__TEXT,__info_plist", "a", @progbits
    .globl corvane_info_plist_begin, corvane_info_plist_end
corvane_info_plist_begin:
    .incbin ")" INFO_PLIST R"("
corvane_info_plist_end:
    .popsection

    .pushsection "__TEXT,__launchd_plist", "a", @progbits
    .globl corvane_launchd_plist_begin, corvane_launchd_plist_end
corvane_launchd_plist_begin:
    .incbin ")" LAUNCHD_PLIST R"("
corvane_launchd_plist_end:
    .popsection
)");
