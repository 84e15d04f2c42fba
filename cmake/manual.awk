# What scdoc writes, without the paragraphs that it opens and leaves empty: a checker of manual pages
# complains about each. The one that it opens before an indent ends belongs behind that.

/^\.P$/ { paragraph = 1; next }
/^\.RE$/ { print; next }
/^\.S[HS] / { paragraph = 0 }
{
    if (paragraph && !heading)
        print ".P"
    paragraph = 0
    heading = /^\.(TH|SH|SS) /
    print
}
