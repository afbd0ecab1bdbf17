#!/usr/bin/env python3
"""Writes the seed corpus: small inputs from which the fuzz targets reach every branch sooner."""
import pathlib
import struct

ROOT = pathlib.Path(__file__).resolve().parent / "corpus"
# A real signature of another text: well formed, to be refused.
SIGNATURE = "$argon2id$v=19$m=64,t=16,p=8$QUFBQUFBQUFBQUFBQUFBQQ$QUFBQUFBQUFBQUFBQUFBQQ"


def request(method, params):
    return '{"jsonrpc":"2.0","params":%s,"method":"%s"}' % (params, method)


COMMANDS = ('{"commandId":"c|1","commandSource":"remote","moduleName":"m","commands":'
            '[{"name":"go","params":[{"name":"a","value":0.1}]},5,null,[1e999,-0.0]]}')
MODULES = ('{"version":"3","modules":[{"moduleName":"m","epoch":"1","alarms":[{"name":"a"},2]},'
           '{"moduleName":"m","alarms":{"x":1}},{}]}')
MAGIC = bytes.fromhex("0a0a9afdd0a476ecaab36a2d9aba6726")


def header(read, write, wrapped, stored, magic=MAGIC):
    return struct.pack("<I16sIIB3xi", 1, magic, read, write, wrapped, stored)


SEEDS = {
    "message": {
        "event": request("v1/notifyAgentEvent", '{"serverConnectivity":"online"}'),
        "command": request("v2/notifyPluginCommand?authorization=x", "{}"),
        "alarm": request("v1/notifyPluginAlarmUpdate", "{}"),
        "error": '{"error":{"code":1,"message":"m"}}',
        "text": "not json",
    },
    "command": {
        "v1": request("v1/notifyPluginCommand", COMMANDS),
        "v2": request("v2/notifyPluginCommand?authorization=" + SIGNATURE, COMMANDS),
        "escaped": request("v2\\/notifyPluginCommand?authorization=" + SIGNATURE, COMMANDS),
        "object": request("v1/notifyPluginCommand", '{"commands":{"a":1}}'),
    },
    "alarm": {
        "v1": request("v1/notifyPluginAlarmUpdate", MODULES),
        "v2": request("v2/notifyPluginAlarmUpdate?authorization=" + SIGNATURE, MODULES),
        "object": request("v1/notifyPluginAlarmUpdate", '{"modules":{"a":{"moduleName":"n"},"b":4}}'),
    },
    "signature": {
        "own": SIGNATURE,
        "spare-bits": SIGNATURE[:-1] + "R",
        "small": "$argon2id$v=19$m=8,t=1,p=1$c2FsdHNhbHQ$QUFBQQ",
        "old": "$argon2id$v=16$m=64,t=16,p=8$QUFBQUFBQUFBQUFBQUFBQQ$QUFBQUFBQUFBQUFBQUFBQQ",
    },
    "masking": {
        "lines": "password: \0\n\0user: bob\npassword: secret\nmore",
        "overlap": ',"p":"\0",\0{"a":1,"p":"one","p":"two","z":2}',
        "same": "X\0X\0aXbXcXd",
        "inside": ",\0\",\0,one\",two\",three",
    },
    "ring": {
        "empty": header(164, 164, 0, 0),
        "lines": header(164, 264, 0, 100),
        "wrapped": header(300, 300, 1, 600000),
        "end": header(164, 524288, 0, 524124),
        "behind": header(524288, 524288, 1, 2147483647),
        "contradiction": header(164, 300, 0, 7),
        "outside": header(0xffffffff, 0xfffffff0, 1, 5),
        "negative": header(164, 164, 0, -1),
        "stored": header(164, 264, 0, 100, bytes(16)),
    },
    "model": {
        "zeros": bytes(64),
        "ones": b"\xff" * 64,
        "count": bytes(range(256)),
        "mixed": bytes((i * 37 + 11) % 256 for i in range(600)),
    },
}

for target, seeds in SEEDS.items():
    folder = ROOT / target
    folder.mkdir(parents=True, exist_ok=True)
    for name, content in seeds.items():
        (folder / name).write_bytes(content if isinstance(content, bytes) else content.encode())
