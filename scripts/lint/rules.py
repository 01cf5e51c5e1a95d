"""Every rule by its name: a check takes a tree and gives (path, line, message) of each fault."""
import documents
import folders
import lengths
import manual
import unused
import words

RULES = {
    "folders": folders.check_folders,
    "includes": folders.check_includes,
    "unused-headers": folders.check_headers,
    "line-length": lengths.check_lines,
    "file-length": lengths.check_files,
    "function-length": lengths.check_functions,
    **{f"banned-{ban.name}": words.check_of(ban) for ban in words.BANS},
    "clocks": words.check_clocks,
    "unused-functions": unused.check_functions,
    "comments": manual.check_comments,
    "document-lines": documents.check_lines,
    "links": documents.check_links,
    "named-files": documents.check_paths,
    "commands": documents.check_commands,
    "programs": documents.check_programs,
    "settings": documents.check_settings,
}
