# Completes command lines with the generated script.  fish.fish SCRIPT
source $argv[1]; or exit 1
set -g failed 0

# expect WANTED LINE: what is completed at the end of the line has to have WANTED ("!WANTED": must not).
function expect
    set -l words (complete -C "varobinary $argv[2]" | string split -f1 \t)
    set -l wanted (string replace -r '^!' '' -- $argv[1])
    set -l isThere yes
    contains -- $wanted $words; or set isThere no
    set -l shouldBe yes
    string match -q '!*' -- $argv[1]; and set shouldBe no
    if test $isThere != $shouldBe
        echo "'varobinary $argv[2]' gives: $words; expected: $argv[1]"
        set -g failed 1
    end
end

expect upload up
expect path 'blob '
expect fish 'completion '
expect '!upload' 'blob '
expect --chunk-size 'upload --ch'
expect --json 'upload --js'
expect '!--chunk-size' 'list --ch'
expect --before-sync '--json blob delete --be'
expect compatible '--policy '
expect upload '--policy safe up'
exit $failed
