#!/usr/bin/env python3
"""Scrapes a Prometheus endpoint and prints its samples as JSON, parsed by the Prometheus
project's own Python client (not by the server's code): one object per sample with the family's
name and type, the sample's name, labels and value."""
import json
import math
import sys
import urllib.request

from prometheus_client.parser import text_string_to_metric_families


def main():
    with urllib.request.urlopen(sys.argv[1], timeout=10) as answer:
        if answer.status != 200:
            sys.exit("status %d" % answer.status)
        text = answer.read().decode("utf-8")
    samples = []
    for family in text_string_to_metric_families(text):
        for sample in family.samples:
            samples.append({"family": family.name, "type": family.type, "name": sample.name,
                            "labels": sample.labels,
                            # JSON has no NaN (a summary without observations has it).
                            "value": None if math.isnan(sample.value) else sample.value})
    json.dump(samples, sys.stdout)


if __name__ == "__main__":
    main()
