"""What the scripts share that show programs on walls of virtual displays."""
import contextlib
import os
import re
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build")
DESK = (1440, 1080)  # more than the windows that programs open, with their borders
LIMIT = 60  # seconds for a run, besides its own
NEAR = 4    # levels of 255 that a pixel may differ by and count as the same


def prepare(packages, *more):
    """Installs what is missing, and builds what shows programs, and more targets."""
    subprocess.run([os.path.join(ROOT, "scripts", "install-packages"), packages], check=True)
    subprocess.run(["cmake", "--preset", "release"], cwd=ROOT, check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "-j", str(os.cpu_count()), "--target", "server",
                    "play", "mosa-wall", "capture", "streamdump", *more], check=True,
                   stdout=subprocess.DEVNULL)


@contextlib.contextmanager
def displays(sizes):
    """Names of virtual displays."""
    servers, names = [], []
    try:
        for width, height in sizes:
            reader, writer = os.pipe()
            servers.append(subprocess.Popen(
                ["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{width}x{height}x24",
                 "-noreset"], pass_fds=[writer], stderr=subprocess.DEVNULL))
            os.close(writer)
            with os.fdopen(reader) as number:
                names.append(":" + number.readline().strip())
        yield names
    finally:
        for server in servers:
            server.terminate()
        for server in servers:
            server.wait(10)


def environment_on(desk):
    environment = dict(os.environ, DISPLAY=desk, LIBGL_ALWAYS_SOFTWARE="1", MOSA_BANNER_TIME="0")
    environment.pop("WAYLAND_DISPLAY", None)
    return environment


def mosa_wall(arguments, desk, seconds):
    """What a run says, and its status."""
    try:
        done = subprocess.run([os.path.join(BUILD, "mosa-wall"), *arguments],
                              env=environment_on(desk), stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, errors="replace",
                              timeout=seconds + LIMIT)
        return done.stdout + done.stderr, done.returncode
    except subprocess.TimeoutExpired as late:
        return f"mosa-wall: no end within {late.timeout} seconds", -1


def window_of(recording):
    """Size of the window that a recording ends with, in pixels."""
    text = subprocess.run([os.path.join(BUILD, "streamdump"), recording], text=True,
                          capture_output=True, errors="replace").stdout
    shown = re.findall(r"glXMakeCurrent\(.*?width=(\d+), height=(\d+)", text)
    return tuple(map(int, shown[-1])) if shown else None


def wall_file(directory, names, size):
    """Four quarters; of odd sizes the right and the upper ones are smaller."""
    width, height = size
    columns, rows = (width + 1) // 2, (height + 1) // 2
    path = os.path.join(directory, "wall.conf")
    with open(path, "w") as file:
        for i, name in enumerate(names):
            x, y = i % 2 * columns, i // 2 * rows
            print(name, width, height, x, y, min(columns, width - x), min(rows, height - y),
                  file=file)
    return path


def compare(own, wall):
    """Part of the pixels that differ."""
    from PIL import Image, ImageChops
    one, other = (Image.open(path).convert("RGB") for path in (own, wall))
    if one.size != other.size:
        return 1.0
    worst = ImageChops.difference(one, other).split()
    most = ImageChops.lighter(ImageChops.lighter(worst[0], worst[1]), worst[2])
    return sum(most.histogram()[NEAR + 1:]) / (one.size[0] * one.size[1])
