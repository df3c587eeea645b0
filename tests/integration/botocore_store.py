"""Makes the calls on standard input with botocore's client of object stores: {"options": {...}, "calls":
[{"call": name, "with": {...}}]}. Writes what each returned to standard output, an error as {"error": its code,
"status": of HTTP}. An argument {"from": [n, key...]} is what call n has returned under these keys. Ends with
status 77 where there is no botocore."""

import json
import sys

try:
    import botocore.session
    from botocore.config import Config
    from botocore.exceptions import ClientError
except ImportError:
    sys.exit(77)


def filled(value, results):
    if isinstance(value, list):
        return [filled(one, results) for one in value]
    if not isinstance(value, dict):
        return value
    if "from" not in value:
        return {key: filled(one, results) for key, one in value.items()}
    index, *keys = value["from"]
    found = results[index]
    for key in keys:
        found = found[key]
    return found


def plain(value):
    """As JSON has it: what is no text, number, list or object becomes a text."""
    if isinstance(value, dict):
        return {key: plain(one) for key, one in value.items()}
    if isinstance(value, list):
        return [plain(one) for one in value]
    if hasattr(value, "read"):
        return value.read().decode("latin-1")
    return value if isinstance(value, (str, int, bool)) else str(value)


def run(client, call, results):
    try:
        answer = getattr(client, call["call"])(**filled(call["with"], results))
        answer["request"] = answer.pop("ResponseMetadata").get("RequestId", "")
        return plain(answer)
    except ClientError as error:
        answer = error.response
        return {"error": answer["Error"]["Code"], "status": answer["ResponseMetadata"]["HTTPStatusCode"]}


task = json.load(sys.stdin)
store = botocore.session.Session().create_client(
    "s3", region_name="us-east-1",
    # No second try of its own: what one request gets is what the tests look at.
    config=Config(s3={"addressing_style": "path"}, retries={"total_max_attempts": 1}), **task["options"])
returned = []
for one in task["calls"]:
    returned.append(run(store, one, returned))
json.dump(returned, sys.stdout)
