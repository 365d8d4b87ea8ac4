"""A part of the machine that nobody else uses: what a script leaves behind there is its own, and
ends with it."""
import ctypes
import os
import signal
import sys

NEW_MOUNTS, NEW_IPC, NEW_USERS, NEW_PROCESSES = 0x20000, 0x8000000, 0x10000000, 0x20000000
BIND, RECURSIVE_PRIVATE = 0x1000, 0x4000 | 0x40000
DIE_WITH_PARENT = 1

libc = ctypes.CDLL(None, use_errno=True)


def call(function, *arguments):
    if function(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{function.__name__}: {os.strerror(error)}")


def mount(source, target, kind=None, flags=0):
    words = [word and word.encode() for word in (source, target, kind)]
    call(libc.mount, *words, ctypes.c_ulong(flags), None)


def write(path, text):
    with open(path, "w") as file:
        file.write(text)


def leave(user, group):
    """Into new namespaces; as root there, where this user is not root here."""
    call(libc.unshare, NEW_MOUNTS | NEW_IPC | NEW_PROCESSES | (NEW_USERS if user else 0))
    if user:
        write("/proc/self/setgroups", "deny")
        write("/proc/self/uid_map", f"0 {user} 1")
        write("/proc/self/gid_map", f"0 {group} 1")


def furnish(kept):
    """Empty /tmp and /dev/shm, but for the folder `kept`, and /proc of what is started here."""
    mount(None, "/", None, RECURSIVE_PRIVATE)
    folder = os.open(kept, os.O_PATH)
    for place in ("/dev/shm", "/tmp"):
        mount("tmpfs", place, "tmpfs")
        os.chmod(place, 0o1777)
    mount("proc", "/proc", "proc")
    if kept.startswith("/tmp/"):
        os.makedirs(kept)
        mount(f"/proc/self/fd/{folder}", kept, None, BIND)
    os.close(folder)


def in_own_world(work, kept, limit):
    """Does some work as process 1 of namespaces of its own, within so many seconds; whatever is
    left of it then ends. Ctrl-C and SIGTERM interrupt it. Returns its status."""
    try:
        leave(os.getuid(), os.getgid())
    except OSError as refused:
        sys.exit(f"{os.path.basename(sys.argv[0])}: needs namespaces of its own, as root or where "
                 f"users may have them: {refused}")
    sys.stdout.flush()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            call(libc.prctl, DIE_WITH_PARENT, signal.SIGKILL, 0, 0, 0)
            signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's & has it ignored
            furnish(kept)
            status = work()
        except KeyboardInterrupt:
            pass
        except BaseException:  # pylint: disable=broad-except
            sys.excepthook(*sys.exc_info())
        finally:
            sys.stdout.flush()
            sys.stderr.flush()
            os._exit(status)
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the terminal tells the child itself
    signal.signal(signal.SIGTERM, lambda *_: os.kill(child, signal.SIGINT))
    signal.signal(signal.SIGALRM, lambda *_: os.kill(child, signal.SIGKILL))
    signal.alarm(int(limit))
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
