# How clang sees the Windows code: the flags of the compilation database, MinGW's headers. To be sourced after env.sh.
#
#   clang_flags_of FILE    prints the flags, one a line, for a source that the mingw tree compiles

clang_tree=$morvane_root/build/mingw

# clang brings its own C intrinsics headers; GCC's copies of them are of no use to it.
clang_target_flags() {
    printf '%s\n' --target=x86_64-w64-windows-gnu -nostdinc++
    while read -r folder; do
        case $folder in
        */c++*) printf '%s\n' -isystem "$folder" ;;
        */x86_64-w64-mingw32/include) printf '%s\n' -isystem "$folder" -isystem "$folder/ddk" ;;
        esac
    done < <(x86_64-w64-mingw32-g++-posix -std=c++20 -E -v -x c++ /dev/null 2>&1 | sed -n '/^#include </,/^End/s/^ //p')
}
mapfile -t clang_target < <(clang_target_flags)

command_of() {
    grep -B1 -F "\"file\": \"$1\"" "$clang_tree/compile_commands.json" |
        sed -n 's/.*"command": "\(.*\)",$/\1/p' | head -n 1
}

# unity_command_of FILE: of the made source that includes the file, where several are compiled as one.
unity_command_of() {
    local made
    made=$(grep -rlF "\"$morvane_root/$1\"" "$clang_tree"/CMakeFiles/*/Unity | head -n 1)
    [ -n "$made" ] && command_of "$made"
}

clang_flags_of() {
    local command words=() word skip=0 begun=0
    command=$(command_of "$morvane_root/$1")
    [ -n "$command" ] || command=$(unity_command_of "$1")
    [ -n "$command" ] || return 1
    read -ra words <<<"${command//\\\"/\"}"
    printf '%s\n' "${clang_target[@]}"
    for word in "${words[@]}"; do
        [ "$skip" -gt 0 ] && { skip=$((skip - 1)); continue; }
        case $word in
        -o | -c | -include) skip=1; continue ;;
        -Wa,* | -Winvalid-pch) continue ;;
        -*) begun=1 ;;
        esac
        # What precedes the first flag is the compiler, with what may launch it.
        [ "$begun" = 1 ] && printf '%s\n' "$word"
    done
}
