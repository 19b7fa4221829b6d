# Comments of the headers as Doxygen knows them: one before a declaration is its description, one behind a member that
# member's. What their text has of Doxygen's and HTML's own signs is text.
s|^\( *\)// |\1/// |
s|^\( *\)//$|\1///|
/^ *\/\/\//s/[@\\<>#%]/\\&/g
s|\([;,{}]\)  *// |\1  ///< |
:escape
s|\(///< .*[^\\]\)\([@<>#%]\)|\1\\\2|
t escape
