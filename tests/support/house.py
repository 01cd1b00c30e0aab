"""The rooms of the house: which part lives where, and what it may include and touch.

A part is a header with its sources; its files are the words of its line in ROOMS, the first being
its name. So a new part is one line, a further source one word. CONTRIBUTING shows this table:
`python3 tests/support/house.py` writes it there.
"""

import dataclasses
import itertools
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]


@dataclasses.dataclass(frozen=True)
class Room:
    """Parts that stand in one folder and may include each other, but in no circle."""
    name: str
    floor: str
    folder: str
    may_include: tuple  # other rooms, by their names or a floor of them
    lines: str

    def names(self):
        return {self.name, self.floor}

    def parts(self):
        """The path stems of each part's files, by the part's name."""
        return {line.split()[0]: [f"{self.folder}/{stem}" for stem in line.split()]
                for line in self.lines.splitlines() if line.strip()}


ROOMS = (
    Room("base", "0", "util/common", (), """
        ascii
        blockTypes
        clock
        crc
        errors errorTable qdsNitErrorTable
        fileDescriptor
        guid
        hexDump
        lbpMisc
        log
        neverDestroyed
        number
        orderedWork
        positionedStream
        signalMask
        stableSequence
        unicode
        utf8
    """),
    Room("scan file format", "1 left", "util/common", ("0",), """
        scanFileFormat
        scanFileSettings
        seekableInflater
        zlibStreams
    """),
    Room("scan file writer", "1 left", "util/common", ("0", "scan file format"), """
        scanFileWriter
    """),
    Room("scan file reader", "1 left", "util/common", ("0", "scan file format"), """
        scanFileCheck
        scanFileFit
        scanFileReader
    """),
    Room("scan files", "1 left", "util/common",
         ("0", "scan file format", "scan file writer", "scan file reader"), """
        scanFileList
        zsbFile zsbFileOpen
    """),
    Room("scan sets", "1 left", "util/common", ("0", "scan file format", "scan file reader"), """
        scanFileMaker
        scanFileStudy
        scanFileWalk
        scanPieces
        scanProblem
        scanSet
        scanSetBlocks
        scanSetCheck
        scanSetIndex
        scanSetMap
        scanSetLoss
        scanSetMerge
        scanSetNames
        scanSetPool
        scanSetRepack
        scanSetTwice
        scanSetUnion
    """),
    Room("pool control", "1 right", "util/common", ("0",), """
        heb hebConsumer
        hebEvent
        hebFamilies
        ostrelVFS vfsManageCmd
        poolLock
        pvKey
        ravCommands
        serviceFiles
        tXML tXMLAttributes tXMLPath tXMLReply
    """),
    Room("engine", "2", "util/ostrelscan", ("0", "1 left", "1 right"), """
        blockSelector
        deviceCache
        failedReads
        poolDevice
        runSettings
        scanEngine dumpPass passNotes restorePass
        scanOptions
    """),
    Room("screen", "3", "util/ostrelscan", ("0", "1 left", "1 right", "2"), """
        progress
        scanUI restoreDialogue
        screenInterface
        screenLayout
        screenText
        screenTerminal
        signalWatch
        terminalTurn
    """),
    Room("command line", "4", "util/ostrelscan", ("0", "1 left", "1 right", "2", "3"), """
        commandLine run usage
        main
        programName
    """),
    Room("companion", "beside", "util/zsbtool", ("0", "1 left"), """
        arguments
        badBlocks
        badBlocksCommand
        blockNumbers
        blockTypeNames
        catCommand
        checkCommand
        checkSet
        command
        commands
        compareCommand
        comparison
        differences
        exportCommand
        failure
        findCommand
        html
        imageCommand
        imageMount
        infoCommand
        json
        listCommand
        logCommand
        madeSet
        main
        mapCommand
        mapPicture
        mergeCommand
        messages
        mountCommand
        openSet
        output
        outputs
        packCommand
        parser
        poolImage
        preflightCommand
        prepareCommand
        program
        progress
        reportCommand
        reportPage
        runLog
        setReport
        setSearch
        setTables csvTables databaseTables
        setWalk
        settings
        shellQuoting
        statusCommand
        statusMeaning
        table
        targetDevice
        text
    """),
    Room("wire", "sim", "sim", (), """
        busEvent
        guidText
        statuses
        textTools
        wire
    """),
    Room("bus library", "sim", "sim", ("wire",), """
        busClient
        busRecords
        hebusLibrary
        neverDestroyed
    """),
    Room("service", "sim", "sim", ("wire",), """
        busHub
        changes
        deviceFile
        faults
        fileTree
        fuseFiles
        jobs
        manageFile
        mountPoint
        openFile
        requests verifyRequests
        service
        settings
        simulation
        trace
    """),
    Room("control", "sim", "sim", ("wire", "service"), """
        control
        controlArguments
        controlCommands
        main
        socketServer
    """),
)


@dataclasses.dataclass(frozen=True)
class Library:
    """What is touched by some parts alone."""
    name: str
    touch: str      # a line that touches it
    owners: tuple   # floors, rooms or parts


LIBRARIES = (
    Library("curses", r"#\s*include <(n?curses|term|panel|menu|form)\b",
            ("screenInterface", "screenTerminal")),
    Library("zlib", r"#\s*include <z(lib|conf)\.h>", ("1 left", "crc")),
    Library("the bus library", r"#\s*include <dlfcn\.h>|\buserHeb", ("heb", "hebusLibrary")),
    Library("libfuse", r"#\s*include <fuse", ("fuseFiles", "imageMount")),
    Library("the option parser", r"#\s*include <CLI/", ("parser",)),
    Library("the JSON library", r"#\s*include <nlohmann/", ("json",)),
)

INCLUDE = re.compile(r'^[ \t]*#\s*(?:include|include_next|import)\b\s*(?:"([^"]*)"|<([^>]*)>|(.*))',
                     re.MULTILINE)


def read_tree(root=ROOT):
    """The text of every file that must have a room, by its name."""
    return {path.relative_to(root).as_posix(): path.read_text(encoding="utf-8")
            for folder in ("util", "sim") for path in sorted((root / folder).rglob("*"))
            if path.is_file() and path.name != "CMakeLists.txt"}


def homes(rooms):
    """The room and the part of every file there may be, by the file's name."""
    return {stem + suffix: (room, f"{room.folder}/{part}")
            for room in rooms for part, stems in room.parts().items()
            for stem in stems for suffix in (".h", ".cpp")}


def edges(tree):
    """What every file includes, as (file, included, whether it is the project's)."""
    for name, text in tree.items():
        for quoted, system, odd in INCLUDE.findall(text):
            included = quoted or system or odd
            yield name, included, not system or included in tree


def homeless(tree, rooms):
    homed = homes(rooms)
    return [f"{name} has no room" for name in tree if name not in homed]


def vanished(tree, rooms):
    stems = {name.rsplit(".", 1)[0] for name in tree}
    return [f"{stem} of the room {room.name} is not there" for room in rooms
            for part in room.parts().values() for stem in part if stem not in stems]


def forbidden(tree, rooms):
    homed = homes(rooms)
    for name, included, ours in edges(tree):
        if name not in homed or not ours:
            continue
        room = homed[name][0]
        if included not in tree:
            yield f"{name} includes {included}, which is no file of the house"
        elif included in homed and not homed[included][0].names() & {room.name, *room.may_include}:
            yield f"{name} ({room.name}) includes {included} ({homed[included][0].name})"


def included_parts(tree, rooms):
    """The parts that each part includes."""
    homed = homes(rooms)
    parts = {part: set() for _, part in homed.values()}
    for name, included, _ in edges(tree):
        if name in homed and included in homed:
            parts[homed[name][1]].add(homed[included][1])
    return {part: known - {part} for part, known in parts.items()}


def circles(tree, rooms):
    """The parts that reach each other by including, each circle once."""
    known = included_parts(tree, rooms)
    reached = {}
    for part in known:
        reached[part], ahead = set(), [part]
        while ahead:
            fresh = known[ahead.pop()] - reached[part]
            reached[part] |= fresh
            ahead += fresh
    together = {frozenset(other for other in reached[part] if part in reached[other])
                for part in known if part in reached[part]}
    return [f"a circle: {', '.join(circle)}" for circle in sorted(map(sorted, together))]


def trespasses(tree, rooms, libraries=LIBRARIES):
    homed = homes(rooms)
    for library in libraries:
        for name in tree:
            room, part = homed.get(name, (None, name))
            known = {part.rsplit("/", 1)[1], *(room.names() if room else ())}
            if re.search(library.touch, tree[name]) and not known & set(library.owners):
                yield f"{name} touches {library.name}"


def violations(tree, rooms=ROOMS):
    """What in the tree is against the table; empty where the house stands as it should."""
    return [found for rule in (homeless, vanished, forbidden, circles, trespasses)
            for found in rule(tree, rooms)]


def as_table(rooms=ROOMS):
    """The lines of the table as CONTRIBUTING shows them: what is in brackets belongs to a part."""
    lines = ["| floor | room | its parts | may include |", "|---|---|---|---|"]
    for room in rooms:
        shown = []
        for part, (_, *further) in room.parts().items():
            with_it = ", ".join(f"`{stem.rsplit('/', 1)[1]}`" for stem in further)
            shown.append(f"`{part}` ({with_it})" if with_it else f"`{part}`")
        if shown:
            lines.append(f"| {room.floor} | {room.name}, `{room.folder}/` | {', '.join(shown)} "
                         f"| {', '.join(room.may_include) or 'nothing else'} |")
    return lines


def shown_table(text):
    """The lines of a document up to the table's end, whatever a merge left between them."""
    lines = text.splitlines()
    start = next(at for at, line in enumerate(lines) if line.startswith("| floor "))
    return list(itertools.takewhile(str.strip, lines[start:]))


def write_table():
    document = ROOT / "CONTRIBUTING.md"
    text = document.read_text(encoding="utf-8")
    document.write_text(text.replace("\n".join(shown_table(text)), "\n".join(as_table())),
                        encoding="utf-8")


if __name__ == "__main__":
    write_table()
