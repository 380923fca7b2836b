# SPDX-License-Identifier: Apache-2.0
"""A Kafka of a test's own: librdkafka's mock cluster in a process, read by kcat."""
import collections
import json
import subprocess

TOPICS = [f"flowhost.{name}" for name in ("flows", "counters", "health", "templates")]


class Kafka:
    def __init__(self, program, *topics):
        self.process = subprocess.Popen([program, *(topics or TOPICS)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True)
        self.brokers = self.process.stdout.readline().strip()

    def tell(self, words):
        print(words, file=self.process.stdin, flush=True)
        self.process.stdout.readline()

    def kcat(self, topic, *options, **how):
        return subprocess.run(["kcat", "-b", self.brokers, "-C", "-t", f"flowhost.{topic}", "-o", "beginning", "-e", "-q",
                               *options], capture_output=True, check=True, **how).stdout

    def put(self, topic, *messages):
        """without keys"""
        subprocess.run(["kcat", "-b", self.brokers, "-P", "-t", f"flowhost.{topic}"], input="\n".join(messages), text=True,
                       check=True, capture_output=True)

    def read(self, topic):
        """the messages of each partition, with their keys"""
        rows = collections.defaultdict(list)
        for line in self.kcat(topic, "-f", r"%p\t%k\t%s\n", text=True).splitlines():
            partition, key, message = line.split("\t", 2)
            if message.startswith("{"):
                rows[partition].append((key, json.loads(message)))
        return rows

    def all(self, topic):
        return [row for rows in self.read(topic).values() for _, row in rows]

    def end(self):
        self.process.stdin.close()
        self.process.wait(10)
