#!/usr/bin/python3
"""The peer of bench/wsdl_bench: python3-zeep loads each WSDL given and walks every
service, port, binding, operation, message and part and the types of the parts.
Prints one line per file: CPU seconds per load-and-walk (best of the repeats) or
"error: TEXT". Usage: wsdl_zeep.py REPEATS ENCODING_XSD FILE..."""
import sys, time

import zeep
from zeep.transports import Transport


SOAP_ENCODING = "http://schemas.xmlsoap.org/soap/encoding/"


class LocalOnly(Transport):
    """Reads files only: the SOAP encoding schema comes from the corpus's copy,
    any other remote import fails at once instead of going to the network."""

    def __init__(self, encoding_schema):
        super().__init__(cache=None)
        self.encoding_schema = encoding_schema

    def load(self, url):
        if url == SOAP_ENCODING:
            url = self.encoding_schema
        elif "://" in url and not url.startswith("file://"):
            raise IOError("remote location not read: " + url)
        return super().load(url)


def walk(client):
    """Every service, port, binding and operation, and the signature of each
    message, which resolves its parts and the types they use."""
    n = 0
    for service in client.wsdl.services.values():
        for port in service.ports.values():
            for op in port.binding._operations.values():
                n += 1
                for msg, as_output in ((op.input, False), (op.output, True)):
                    if msg is not None:
                        n += len(msg.signature(as_output=as_output) or "")
    return n


def main():
    repeats = int(sys.argv[1])
    encoding_schema = sys.argv[2]
    for path in sys.argv[3:]:
        best = None
        try:
            for _ in range(repeats):
                start = time.process_time()
                client = zeep.Client(wsdl=path, transport=LocalOnly(encoding_schema),
                                     settings=zeep.Settings(strict=False))
                walk(client)
                elapsed = time.process_time() - start
                best = elapsed if best is None else min(best, elapsed)
            print(f"{path}\t{best:.6f}")
        except Exception as e:  # noqa: BLE001 - every failure is an outcome to report
            print(f"{path}\terror: {type(e).__name__}: {str(e).splitlines()[0] if str(e) else ''}")
        sys.stdout.flush()


if __name__ == "__main__":
    main()
