// The property lists of the program, byte for byte, each in a section of its own:
//   objcopy --dump-section __TEXT,__info_plist=Info.plist PROGRAM

    .section "__TEXT,__info_plist", "a", @progbits
    .globl corvane_info_plist_begin, corvane_info_plist_end
corvane_info_plist_begin:
    .incbin INFO_PLIST
corvane_info_plist_end:

    .section "__TEXT,__launchd_plist", "a", @progbits
    .globl corvane_launchd_plist_begin, corvane_launchd_plist_end
corvane_launchd_plist_begin:
    .incbin LAUNCHD_PLIST
corvane_launchd_plist_end:

    .section .note.GNU-stack, "", @progbits
