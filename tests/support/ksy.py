"""Parses bytes as a description for Kaitai Struct says, as far as docs/zsb.ksy uses that language:
sequences of integers, bytes, strings and types of its own, with contents, sizes, repetition to the end,
conditions, zlib and computed values. What else it meets is an error."""

import re
import types
import zlib

import yaml

ATTRIBUTE_KEYS = {"id", "doc", "type", "size", "size-eos", "contents", "encoding", "process", "if",
                  "repeat"}
INTEGER = re.compile(r"([us])([1248])")


class Stream:
    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, size):
        if size < 0 or self.at + size > len(self.data):
            raise EOFError(f"{size} bytes wanted at {self.at} of {len(self.data)}")
        self.at += size
        return self.data[self.at - size:self.at]

    def at_end(self):
        return self.at == len(self.data)


def _value(expression, fields):
    """The language's operators are Python's, where there is no division."""
    if not re.fullmatch(r"[\w\s.()&=!<>-]+", expression):
        raise NotImplementedError(expression)
    return eval(expression, {"__builtins__": {}}, fields)  # of a file of the tree


class Description:
    def __init__(self, text):
        self.root = yaml.safe_load(text)
        if set(self.root) != {"meta", "doc", "seq", "types"} or self.root["meta"]["endian"] != "le":
            raise NotImplementedError(sorted(self.root))

    def parse(self, data):
        """The fields of a file, as attributes; `rest` is what stands behind them."""
        stream = Stream(data)
        found = self._sequence(self.root, stream)
        found.rest = stream.data[stream.at:]
        return found

    def _sequence(self, kind, stream):
        if not set(kind) <= {"meta", "doc", "seq", "types", "instances"}:
            raise NotImplementedError(sorted(kind))
        fields = {}
        for attribute in kind["seq"]:
            if not set(attribute) <= ATTRIBUTE_KEYS:
                raise NotImplementedError(sorted(attribute))
            wanted = "if" not in attribute or _value(attribute["if"], fields)
            fields[attribute["id"]] = self._repeated(attribute, stream, fields) if wanted else None
        for name, instance in kind.get("instances", {}).items():
            fields[name] = _value(instance["value"], fields)
        return types.SimpleNamespace(**fields)

    def _repeated(self, attribute, stream, fields):
        if attribute.get("repeat", "eos") != "eos":
            raise NotImplementedError(attribute["repeat"])
        if "repeat" not in attribute:
            return self._one(attribute, stream, fields)
        found = []
        while not stream.at_end():
            found.append(self._one(attribute, stream, fields))
        return found

    def _one(self, attribute, stream, fields):
        if "contents" in attribute:
            wanted = attribute["contents"].encode("ascii")
            if stream.take(len(wanted)) != wanted:
                raise ValueError(f"{attribute['id']} is not {wanted}")
            return wanted
        kind = attribute.get("type")
        integer = INTEGER.fullmatch(kind or "")
        if integer:
            return int.from_bytes(stream.take(int(integer[2])), "little", signed=integer[1] == "s")
        if "size" in attribute or "size-eos" in attribute:
            return self._sized(attribute, stream, fields)
        return self._sequence(self.root["types"][kind], stream)

    def _sized(self, attribute, stream, fields):
        size = (len(stream.data) - stream.at if "size-eos" in attribute
                else _value(str(attribute["size"]), fields))
        data = stream.take(size)
        if attribute.get("process", "zlib") != "zlib":
            raise NotImplementedError(attribute["process"])
        if "process" in attribute:
            data = zlib.decompress(data)
        kind = attribute.get("type")
        if kind is None:
            return data
        if kind == "str":
            return data.decode(attribute["encoding"])
        inner = Stream(data)
        found = self._sequence(self.root["types"][kind], inner)
        if not inner.at_end():
            raise ValueError(f"{attribute['id']} has more than its type")
        return found
