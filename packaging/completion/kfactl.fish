# Completion of kfactl for fish: the program says what a word can become; names of files are the shell's.
function __kfactl_complete
    set -l words (commandline -opc) (commandline -ct)
    command $words[1] complete -- $words[2..-1] 2>/dev/null
end
complete -c kfactl -a '(__kfactl_complete)'
