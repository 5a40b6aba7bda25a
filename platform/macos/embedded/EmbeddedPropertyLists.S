// The property lists of the program, byte for byte, each in a section of its own. Nothing in the
// program refers to them: the system reads them, and the program by their names.

    .section __TEXT,__info_plist,regular,no_dead_strip
    .incbin INFO_PLIST

    .section __TEXT,__launchd_plist,regular,no_dead_strip
    .incbin LAUNCHD_PLIST

    .subsections_via_symbols
