#!/usr/bin/env python3
"""Moves one object of a store at an address: boto3_object.py upload|download STORE_URL BUCKET KEY FILE.
What varo_objects is measured beside; as boto3 does it by itself, in parts and ranges side by side."""

import sys

import boto3
from botocore.config import Config


def main():
    direction, url, bucket, key, path = sys.argv[1:]
    store = boto3.client("s3", endpoint_url=url, region_name="us-east-1",
                         aws_access_key_id="sandbox", aws_secret_access_key="sandbox-secret-key",
                         config=Config(s3={"addressing_style": "path"}))
    if direction == "upload":
        store.upload_file(path, bucket, key)
    else:
        store.download_file(bucket, key, path)


main()
