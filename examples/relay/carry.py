#!/usr/bin/env python3
"""carry.py: one relay sends a file to another through a network that drops and reorders datagrams, and is killed on the
way; another one goes on where it ended.

  carry.py PROGRAM FILE

The network is a socket of this script: it drops 2 % of what passes and lets 3 % be overtaken. Exits 1 when the file that
came is not the same. No process is left behind.
"""
import hashlib
import os
import random
import select
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

PROGRAM, FILE = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
PATIENCE = 120
DROPPED, OVERTAKEN = 0.02, 0.03


class Network(threading.Thread):
    """Carries datagrams between a receiver's port and whoever sent to this one last."""

    def __init__(self, receiver):
        super().__init__(daemon=True)
        self.receiver = ('127.0.0.1', receiver)
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        self.socket.bind(('127.0.0.1', 0))
        self.port = self.socket.getsockname()[1]
        self.passed = self.dropped = self.overtaken = 0
        self.to_receiver = 0  # bytes
        self.over = False
        self.random = random.Random(1)

    def run(self):
        sender, held = None, None
        while not self.over:
            if not select.select([self.socket], [], [], 0.05)[0]:
                continue
            datagram, source = self.socket.recvfrom(65536)
            if source == self.receiver:
                target = sender
            else:
                sender, target = source, self.receiver
                self.to_receiver += len(datagram)
            chance = self.random.random()
            if chance < DROPPED or target is None:
                self.dropped += 1
            elif chance < DROPPED + OVERTAKEN and held is None:
                held = datagram, target
            else:
                self.socket.sendto(datagram, target)
                self.passed += 1
                if held:
                    self.socket.sendto(*held)
                    self.overtaken += 1
                    held = None


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]


def sha256(path):
    with open(path, 'rb') as file:
        return hashlib.sha256(file.read()).hexdigest()


def start_receiver(directory):
    for _ in range(20):
        port = free_port()
        receiver = subprocess.Popen([PROGRAM, 'receive', directory, str(port)], stdout=subprocess.PIPE, text=True)
        if receiver.stdout.readline().startswith('receives'):
            return receiver, port
        receiver.kill()
        receiver.communicate()
    sys.exit('no receiver')


def send(network):
    return subprocess.Popen([PROGRAM, 'send', FILE, f'127.0.0.1:{network.port}'], stdout=subprocess.PIPE, text=True)


def main():
    size = FILE.stat().st_size
    with tempfile.TemporaryDirectory(prefix='carry') as directory:
        receiver, port = start_receiver(directory)
        network = Network(port)
        network.start()
        try:
            first = send(network)
            patience = time.monotonic() + PATIENCE
            while network.to_receiver < size / 3 and first.poll() is None and time.monotonic() < patience:
                time.sleep(0.005)
            first.kill()
            first.communicate()
            before = network.to_receiver
            print(f'   The first sender is killed when {before * 100 // max(size, 1)} % have left it.')
            began = time.monotonic()
            second = send(network)
            said = second.communicate(timeout=PATIENCE)[0].splitlines()
            seconds = time.monotonic() - began
            rest = network.to_receiver - before
            print(f'   The second one goes on: {rest * 100 // max(size, 1)} % of the bytes in {seconds:.1f} s.')
            print(f'   {network.passed} datagrams passed, {network.dropped} were dropped, {network.overtaken} overtaken.')
            came = Path(directory, FILE.name)
            sums = sha256(FILE), sha256(came) if came.exists() else 'nothing came'
            print(f'   sent {sums[0]}\n   came {sums[1]}')
            left = [name for name in os.listdir(directory) if name != FILE.name]
            good = second.returncode == 0 and said and sums[0] == sums[1] and not left
            good = good and (size < 1 << 20 or rest < 0.95 * size)
        finally:
            for sender in (process for process in (locals().get('first'), locals().get('second')) if process):
                if sender.poll() is None:
                    sender.kill()
            receiver.send_signal(signal.SIGTERM)
            receiver.communicate(timeout=PATIENCE)
            network.over = True
            network.join()
    return 0 if good and receiver.returncode == 0 else 1


sys.exit(main())
