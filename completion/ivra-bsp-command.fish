# The completion of this command is in the file of ivra-bsp, which this makes fish read, once.
complete -C 'ivra-bsp ' >/dev/null
