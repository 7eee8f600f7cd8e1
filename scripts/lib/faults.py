"""One-line faults in C++ sources: where they can be planted, and a text form that a person reads and a file keeps.

A fault replaces whole lines of one file. Whether it compiles is the compiler's business: an exchange of arguments of two
types, say, is offered here and refused there.
"""
import bisect
import dataclasses
import hashlib
import re

COMPARISON = "comparison turned"
CONSTANT = "constant shifted"
STATEMENT = "statement dropped"
ARGUMENTS = "arguments exchanged"
EXIT = "early exit removed"
LOCK = "lock dropped"

TURNED = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], ">": [">=", "<="], "<=": ["<", ">"], ">=": [">", "<"],
          "&&": ["||"], "||": ["&&"]}

# What a line that is no statement of its own begins with.
NO_STATEMENT = re.compile(r"(?:return|if|for|while|do|switch|case|default|goto|using|typedef|struct|class|enum|namespace|"
                          r"template|public|private|protected|static|const|constexpr|constinit|auto|else|try|catch|"
                          r"friend|explicit|virtual|extern|static_assert|delete|inline|operator|throw|break|continue)\b")
DECLARATION = re.compile(r"(?:\w+ )*[\w:]+(?:<[^=;]*>)?(?:::\w+)?[*&]*\s+[*&]*\w+\s*[=;({\[,:]|[^;]*= (?:delete|default);")
STATEMENT_START = re.compile(r"(?:\+\+|--|\*|::)?[A-Za-z_~]")
EXIT_START = re.compile(r"(?:return|break|continue|throw)\b")
LOCK_START = re.compile(r"(?:const )?std::(?:lock_guard|unique_lock|scoped_lock|shared_lock)\b")
NO_CALL = {"if", "for", "while", "switch", "catch", "return", "sizeof", "alignof", "decltype", "static_assert",
           "defined", "noexcept", "alignas", "__attribute__"}


@dataclasses.dataclass(frozen=True)
class Fault:
    path: str
    line: int  # of the first line, from 1
    old: tuple  # the lines as they are
    new: tuple  # the lines in their place
    kind: str

    def key(self):
        """What tells it from others wherever its lines move to."""
        return self.path, stripped(self.old), stripped(self.new)

    def text(self):
        return "\n".join([f"{self.path}:{self.line}"] + ["- " + line for line in stripped(self.old)] +
                         ["+ " + line for line in stripped(self.new)])

    def planted(self, source):
        lines = source.split("\n")
        lines[self.line - 1:self.line - 1 + len(self.old)] = self.new
        return "\n".join(lines)


def stripped(lines):
    return tuple(line.strip() for line in lines)


def masked(source):
    """The same length, with blanks for comments and preprocessor lines and underscores inside literals."""
    def blank(text):
        return re.sub(r"[^\n]", " ", text)

    def mask(match):
        text = match[0]
        if text.startswith(("//", "/*", "#")):
            return blank(text)
        if text.startswith("R\""):
            return '"' + re.sub(r"[^\n]", "_", text[1:-1]) + '"'
        return text[0] + "_" * (len(text) - 2) + text[-1]

    return re.sub(r"//[^\n]*|/\*.*?\*/|^[ \t]*#(?:[^\n\\]|\\.)*|R\"(\w*)\(.*?\)\1\"|\"(?:[^\"\\\n]|\\.)*\"|"
                  r"(?<!\w)'(?:[^'\\\n]|\\.)*'", mask, source, flags=re.S | re.M)


def closing(code, start):
    """The place of the bracket that closes the one at `start`, or -1."""
    depth = 0
    for i in range(start, len(code)):
        if code[i] in "([{":
            depth += 1
        elif code[i] in ")]}":
            depth -= 1
            if depth == 0:
                return i
    return -1


def statement_end(code, start):
    """Just behind the semicolon of the statement at `start`, or -1 for what has a block or no end."""
    i = start
    while i < len(code):
        if code[i] == ";":
            return i + 1
        if code[i] in "([":
            i = closing(code, i)
            if i < 0:
                return -1
        elif code[i] in "{})]":
            return -1
        i += 1
    return -1


def bodies(code):
    """Where statements begin: places, and whether a condition or a loop stands before them."""
    for match in re.finditer(r"^[ \t]*(?=\S)", code, re.M):
        begin = match.end()
        before = code[:match.start()].rstrip()
        if before and before[-1] not in ";{}:)" and not before.endswith("else"):
            continue
        yield begin, before.endswith((")", "else"))
        control = re.compile(r"(?:\} )?(?:else )?(?:if|for|while)(?: constexpr)? \(").match(code, begin)
        if control:
            end = closing(code, control.end() - 1)
            rest = re.compile(r" (?=[^\s{])").match(code, end + 1) if end >= 0 else None
            if rest:
                yield rest.end(), True


def dropped(code):
    for begin, controlled in bodies(code):
        end = statement_end(code, begin)
        if end < 0:
            continue
        statement = code[begin:end]
        if LOCK_START.match(statement):
            yield begin, end, "", LOCK
        elif EXIT_START.match(statement):
            # The last one of a function is no early one.
            if controlled or not re.match(r"\s*?\n(?:\}|\s*\}\)*[;,)])", code[end:]):
                yield begin, end, "{}", EXIT
        elif STATEMENT_START.match(statement) and not NO_STATEMENT.match(statement) and \
                not DECLARATION.match(statement) and re.search(r"[=(]|\+\+|--", statement):
            yield begin, end, "{}", STATEMENT


def turned(code):
    for match in re.finditer(r"(?<=[ \n])(==|!=|<=|>=|<|>|&&|\|\|)(?=[ \n])", code):
        for other in TURNED[match[0]]:
            yield match.start(), match.end(), other, COMPARISON
    for match in re.finditer(r"!(?=[\w(:])", code):
        yield match.start(), match.end(), "", COMPARISON
    for match in re.finditer(r"\b(?:if|while) \(", code):
        begin, end = match.end(), closing(code, match.end() - 1)
        condition = code[begin:end]
        if end > begin and not re.search(r"^!|[^=!<>]=[^=]|;| (?:[=!<>]=|[<>]|&&|\|\|) |\n", condition):
            yield begin, end, lambda text: f"!({text})", COMPARISON


def shifted(code):
    for match in re.finditer(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|0|[1-9]\d*)(?=[uUlL]*(?![\w.']))", code):
        is_hex = match[0][:2].lower() == "0x"
        value = int(match[0], 16 if is_hex else 10)
        for other in {value + 1, max(value - 1, 0)} - {value}:
            yield match.start(), match.end(), hex(other) if is_hex else str(other), CONSTANT
    for match in re.finditer(r"\b(true|false)\b", code):
        yield match.start(), match.end(), "false" if match[0] == "true" else "true", CONSTANT


def arguments(code, begin, end):
    """The places of what stands between the commas from `begin` to `end`, without the blanks around."""
    places, depth, start = [], 0, begin
    for i in range(begin, end + 1):
        depth += (code[i] in "([{") - (code[i] in ")]}") if i < end else 0
        if i == end or (depth == 0 and code[i] == ","):
            text = code[start:i]
            places.append((start + len(text) - len(text.lstrip()), start + len(text.rstrip())))
            start = i + 1
    return places


def alike(one, other):
    """Whether two arguments may be of one type, by their looks."""
    declares = re.compile(r"[\w>][*&]*\s+[*&]*\w")
    for looks in (lambda text: text[:1] == '"', lambda text: text[:1] == "&", lambda text: text == "nullptr"):
        if looks(one) != looks(other):
            return False
    return not any(not text or declares.search(text) or re.search(r"[{\n]|<\w|\.\.\.", text) for text in (one, other))


def exchanged(code):
    for match in re.finditer(r"\b(\w+)(?:<[\w:, *]+>)?\(", code):
        end = closing(code, match.end() - 1)
        if end < 0 or match[1] in NO_CALL or match[1].isupper():
            continue
        places = arguments(code, match.end(), end)
        for (a, b), (c, d) in zip(places, places[1:]):
            if "\n" not in code[a:d] and alike(code[a:b], code[c:d]):
                yield a, d, lambda text, b=b - a, c=c - a: text[c:] + text[b:c] + text[:b], ARGUMENTS


def faults_in(path, source):
    """Every fault that can be planted in a source, in the order of its lines."""
    code = masked(source)
    lines = source.split("\n")
    starts = [0]
    for line in lines:
        starts.append(starts[-1] + len(line) + 1)
    found = {}
    for make in (dropped, turned, shifted, exchanged):
        for begin, end, put, kind in make(code):
            old = source[begin:end]
            new = put(old) if callable(put) else put
            first, last = bisect.bisect_right(starts, begin) - 1, bisect.bisect_right(starts, end - 1) - 1
            text = "\n".join(lines[first:last + 1])
            text = text[:begin - starts[first]] + new + text[end - starts[first]:]
            if old != new:
                fault = Fault(path, first + 1, tuple(lines[first:last + 1]), tuple(text.split("\n")), kind)
                found.setdefault((fault.line, fault.new), fault)
    return sorted(found.values(), key=lambda fault: (fault.line, fault.new))


def drawn(faults, seed):
    """All faults in an order that the seed decides, the same on any machine: one of each line first."""
    def lot(numbered):
        nth, fault = numbered
        return hashlib.sha256(repr((seed, fault.key(), nth)).encode()).digest()

    seen, numbered = {}, []
    for fault in faults:
        seen[fault.key()] = seen.get(fault.key(), 0) + 1
        numbered.append((seen[fault.key()], fault))
    first, later, lines = [], [], set()
    for _, fault in sorted(numbered, key=lot):
        place = fault.path, fault.line
        (later if place in lines else first).append(fault)
        lines.add(place)
    return first + later


def read_list(text):
    """The faults of a list, as Fault.text writes them: each with its reason, "" without one ("why: ...")."""
    for block in re.split(r"\n\s*\n", "\n".join(line for line in text.split("\n") if not line.startswith("#"))):
        rows = block.strip("\n").split("\n")
        place = re.fullmatch(r"(\S+):(\d+)(?:  .*)?", rows[0])
        if not place:
            if block.strip():
                raise ValueError(f"a fault begins with FILE:LINE, not with \"{rows[0]}\"")
            continue
        old = tuple(row[2:].strip() for row in rows[1:] if row.startswith("-"))
        new = tuple(row[2:].strip() for row in rows[1:] if row.startswith("+"))
        why = " ".join(row.removeprefix("why:").strip() for row in rows[1:] if not row.startswith(("-", "+")))
        yield Fault(place[1], int(place[2]), old, new or ("",), "from a list"), why


def located(fault, source):
    """A listed fault where its lines now stand, nearest to where they stood; None when they are gone."""
    lines = source.split("\n")
    count = len(fault.old)
    places = [i for i in range(len(lines)) if stripped(lines[i:i + count]) == fault.old]
    if not places:
        return None
    at = min(places, key=lambda i: abs(i + 1 - fault.line))
    return dataclasses.replace(fault, line=at + 1, old=tuple(lines[at:at + count]))
