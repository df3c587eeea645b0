"""Signs requests with botocore: a JSON array of requests on standard input, one of header sets on
standard output. Ends with status 77 where there is no botocore."""

import json
import sys

try:
    from botocore.auth import S3SigV4Auth
    from botocore.awsrequest import AWSRequest
    from botocore.credentials import Credentials
except ImportError:
    sys.exit(77)


class DatedAuth(S3SigV4Auth):
    """Signs for a given time."""

    def __init__(self, timestamp, *arguments):
        super().__init__(*arguments)
        self._timestamp = timestamp

    def _modify_request_before_signing(self, request):
        request.context["timestamp"] = self._timestamp
        super()._modify_request_before_signing(request)


def sign(case):
    headers = {"Host": case["Host"], **case["headers"]}
    request = AWSRequest(case["method"], f"https://{case['Host']}/{case['objectName']}", headers,
                         bytes.fromhex(case["payload"]), case["query"])
    credentials = Credentials(case["accessKeyID"], case["secretAccessKey"], case["sessionToken"] or None)
    DatedAuth(case["time"], credentials, case["serviceName"], case["regionName"]).add_auth(request)
    signed = {name.lower(): value for name, value in request.headers.items()}
    # The same list either way; the blanks after its commas are a matter of taste.
    signed["authorization"] = signed["authorization"].replace(", ", ",")
    return signed


json.dump([sign(case) for case in json.load(sys.stdin)], sys.stdout)
