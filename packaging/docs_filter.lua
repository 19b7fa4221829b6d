-- A page of docs/ as a manual page: links lead nowhere on paper, so their text stays, and the title becomes NAME.
function Link(link)
    return link.content
end

function Header(header)
    if header.level > 1 then
        header.level = header.level - 1
        return header
    end
    local name = PANDOC_WRITER_OPTIONS.variables["name"]
    return {pandoc.Header(1, "NAME"), pandoc.Para(tostring(name)), pandoc.Header(1, "DESCRIPTION")}
end

-- A line has room for about six columns of the width that each gets by itself. More of them share it by the longest
-- word that each has; what is longer than seven letters is hyphenated.
function Table(table)
    if #table.colspecs <= 6 then
        return nil
    end
    local longest, sum = {}, 0
    for column = 1, #table.colspecs do
        longest[column] = 0
        for _, rows in ipairs({table.head.rows, table.bodies[1].body}) do
            for _, row in ipairs(rows) do
                for word in pandoc.utils.stringify(row.cells[column].contents):gmatch("%S+") do
                    longest[column] = math.max(longest[column], math.min(#word, 7))
                end
            end
        end
        sum = sum + longest[column]
    end
    for column, spec in ipairs(table.colspecs) do
        spec[2] = 0.66 * longest[column] / sum
    end
    return table
end
