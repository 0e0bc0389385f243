# Input filter of Doxygen: a comment covers all declarations that stand directly beneath it, up to the next
# comment, blank line or access label, as in
#     /// Lower and upper corner over all positions.
#     Vector3f aabb_min() const;
#     Vector3f aabb_max() const;
# and what is defaulted needs none. Doxygen gives a comment to one declaration: this repeats it.

function depth_of(line,    rest) {
    rest = line
    sub(/\/\/.*/, "", rest)
    return gsub(/[({]/, "", rest) - gsub(/[)}]/, "", rest)
}

# Inside of a declaration of several lines
depth > 0 || open {
    depth += depth_of($0)
    open = depth > 0 || $0 !~ /[;}][ \t]*(\/\/.*)?$/
    print
    next
}

/^[ \t]*\/\/\/([^<]|$)/ {
    if (!in_comment) {
        comment = ""
    }
    comment = comment $0 "\n"
    in_comment = 1
    print
    next
}

/^[ \t]*($|\/\/|#|[})])/ || /^[ \t]*(public|protected|private):/ ||
/^[ \t]*(typedef |template.* )?(class|struct|union|enum|namespace|extern "C")[^;]*\{[ \t]*(\/\/.*)?$/ {
    comment = ""
    in_comment = 0
    print
    next
}

/(operator==|operator<=>|operator=|[A-Za-z]+)\(.*\)( const)?( noexcept)? = default;/ && !in_comment {
    sub(/^.*$/, "")
    print
    next
}

{
    # Printed on the declaration's own line, so that warnings keep their line numbers.
    if (!in_comment && comment != "" && $0 !~ /\/\/\/</) {
        text = comment
        gsub(/\n[ \t]*\/\/\/ ?/, "\n", text)
        sub(/^[ \t]*\/\/\/ ?/, "", text)
        gsub(/\n/, " ", text)
        printf "/** %s */ ", text
    }
    if ($0 ~ /^[ \t]*template <.*>[ \t]*$/) {
        in_comment = 1  # covered, and what it is a template of comes with it
        print
        next
    }
    in_comment = 0
    depth += depth_of($0)
    open = depth > 0 || $0 !~ /[;}][ \t]*(\/\/.*)?$/
    print
}
