"""GLPK's shared library, in a thread of its own.

The library ends the process when it is misused or meets numbers that it can't work with: it calls
a hook, and aborts when that returns. So all of it runs in one thread, where it keeps its memory,
and the hook doesn't return: the caller gets an error, the thread stays where it is, and the next
call starts another one, with an environment of its own. In the same way a caller leaves a thread
behind that doesn't heed Ctrl-C or a time limit; that one ends when its work is done.
"""

from __future__ import annotations

import ctypes
import queue
import threading
import time
from typing import Any, Callable, List, Optional, Tuple, TypeVar

from .adapter import SolverError

LIBRARY = "libglpk.so.40"
PATIENCE = 0.5  # seconds for a call to end after it was told to

Result = TypeVar("Result")


class Interrupted(Exception):
    """A call was told to stop before it had a result."""


class SimplexParameters(ctypes.Structure):
    _fields_ = [
        *((name, ctypes.c_int) for name in ("msg_lev", "meth", "pricing", "r_test")),
        *((name, ctypes.c_double) for name in ("tol_bnd", "tol_dj", "tol_piv", "obj_ll", "obj_ul")),
        *((name, ctypes.c_int) for name in ("it_lim", "tm_lim", "out_frq", "out_dly", "presolve",
                                            "excl", "shift", "aorn")),
        ("reserved", ctypes.c_double * 33),
    ]


CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p)


class IntegerParameters(ctypes.Structure):
    _fields_ = [
        *((name, ctypes.c_int) for name in ("msg_lev", "br_tech", "bt_tech")),
        ("tol_int", ctypes.c_double), ("tol_obj", ctypes.c_double),
        *((name, ctypes.c_int) for name in ("tm_lim", "out_frq", "out_dly")),
        ("cb_func", CALLBACK), ("cb_info", ctypes.c_void_p),
        ("cb_size", ctypes.c_int), ("pp_tech", ctypes.c_int), ("mip_gap", ctypes.c_double),
        *((name, ctypes.c_int) for name in ("mir_cuts", "gmi_cuts", "cov_cuts", "clq_cuts",
                                            "presolve", "binarize", "fp_heur", "ps_heur",
                                            "ps_tm_lim", "sr_heur", "use_sol")),
        ("save_sol", ctypes.c_char_p), ("alien", ctypes.c_int), ("flip", ctypes.c_int),
        ("reserved", ctypes.c_double * 23),
    ]


TYPES = {"p": ctypes.c_void_p, "s": ctypes.c_char_p, "i": ctypes.c_int, "d": ctypes.c_double,
         "-": None}
# Result and arguments of each routine, by these letters. Those that are called for each row or
# column (*) get their arguments in the library's own types, as to convert them takes longer than
# the rest of a call.
ROUTINES = """
    create_prob p   delete_prob -p   erase_prob -p   read_mps ipips   get_prob_name sp
    get_row_name s*   get_col_name s*   get_num_rows ip   get_num_cols ip   get_num_nz ip
    add_rows ipi   add_cols ipi   set_row_bnds -*   set_col_bnds -*   get_row_lb d*   get_row_ub d*
    get_col_lb d*   get_col_ub d*   get_col_kind i*   set_col_kind -*   get_obj_dir ip
    set_obj_dir -pi   get_obj_coef d*   set_obj_coef -*   get_mat_row ipipp   get_mat_col i*
    set_mat_row -piipp   load_matrix -pippp   scale_prob -pi   adv_basis -pi   init_smcp -p
    simplex ipp   get_it_cnt ip   get_status ip   get_prim_stat ip   get_obj_val dp
    get_row_prim d*   get_row_dual d*   get_col_prim d*   get_col_dual d*   init_iocp -p
    intopt ipp   ios_terminate -p   ios_best_node ip   ios_node_bound dpi   mip_status ip
    mip_obj_val dp   mip_row_val d*   mip_col_val d*   npp_alloc_wksp p   npp_load_prob -ppii
    npp_preprocess1 ipi   npp_build_prob -pp   npp_postprocess -pp   npp_obtain_sol -pp
    npp_free_wksp -p   get_row_stat i*   set_row_stat -*   set_col_stat -*   bf_exists ip
    factorize ip   eval_tab_col ipipp   prim_rtest ipippid   free_env i
"""


class Library:
    """The routines as attributes, without their prefix. Raises SolverError if it is missing."""

    def __init__(self, name: str) -> None:
        try:
            self.loaded = ctypes.CDLL(name)
        except OSError:
            raise SolverError("GLPK is missing: %s can't be loaded; on Debian: apt-get install "
                              "libglpk40" % name) from None
        words = iter(ROUTINES.split())
        for routine, letters in zip(words, words):
            function = getattr(self.loaded, "glp_" + routine, None)
            if function is None:
                raise SolverError("GLPK is too old: version 5.0 or newer is needed, as %s has no "
                                  "routine glp_%s" % (name, routine))
            function.restype = TYPES[letters[0]]
            if letters[1:] != "*":
                function.argtypes = [TYPES[letter] for letter in letters[1:]]
            setattr(self, routine, function)

    def __getattr__(self, name: str) -> Any:
        raise AttributeError(name)


class Thread:
    """A thread that the library runs in."""

    def __init__(self, library: Library) -> None:
        self.lib, self._lost, self._one = library, "", threading.RLock()
        self.stopping = False  # what runs is to end soon
        self.messages: List[str] = []  # what the library printed in the last call
        self._calls: queue.SimpleQueue[Any] = queue.SimpleQueue()
        self._on_print = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_char_p)(
            self._keep_message)
        self._on_error = ctypes.CFUNCTYPE(None, ctypes.c_void_p)(self._stop_for_good)
        self._thread = threading.Thread(target=self._run, name="glpk", daemon=True)
        self._thread.start()

    def call(self, function: Callable[..., Result], *arguments: Any,
             log: Optional[Callable[[str], object]] = None,
             seconds: float = threading.TIMEOUT_MAX) -> Result:
        """The result of the function, which runs in the thread and should end when `stopping` is
        set. That is done after so many seconds and at Ctrl-C; if it doesn't help, the thread is
        left behind. Lines that the library prints go to `log`, here.

        Raises what the function does, SolverError if the library stopped, KeyboardInterrupt at
        Ctrl-C, and Interrupted if the function didn't end in time.
        """
        if self.lost:
            raise SolverError("GLPK %s: its problem has to be loaded again" % self.lost)
        with self._one:
            return self._call(function, arguments, log, time.monotonic() + min(seconds, 1e9))

    def _call(self, function: Callable[..., Result], arguments: Tuple[Any, ...],
              log: Optional[Callable[[str], object]], end: float) -> Result:
        answers: queue.SimpleQueue[Any] = queue.SimpleQueue()
        interruption: Optional[BaseException] = None
        self.stopping = False
        self._calls.put((function, arguments, answers))
        while True:
            try:
                kind, value = answers.get(timeout=max(0.0, end - time.monotonic()))
                if kind == "line":
                    if log is not None:
                        log(value)
                    continue
            except queue.Empty:
                if not self.stopping:
                    self.stopping, end = True, time.monotonic() + PATIENCE
                    continue
                self._leave("was left behind, as it did not stop in time")
                kind, value = "error", Interrupted()
            except BaseException as error:  # Ctrl-C, or what `log` raises
                interruption = interruption or error
                self.stopping, end = True, min(end, time.monotonic() + PATIENCE)
                continue
            if interruption is not None:
                raise interruption
            if kind == "result":
                return value  # type: ignore[no-any-return]
            raise value

    def later(self, function: Callable[..., object], *arguments: Any) -> None:
        """Runs the function when there is nothing else to do; nobody hears of its end."""
        self._calls.put((function, arguments, queue.SimpleQueue()))

    @property
    def lost(self) -> str:
        """Why the thread can't be used any more, or nothing."""
        if not self._lost and not self._thread.is_alive():
            self._lost = "doesn't run in a process that was forked"
        return self._lost

    # What runs in the thread.

    def _run(self) -> None:
        self.lib.loaded.glp_term_hook(self._on_print, None)
        self.lib.loaded.glp_error_hook(self._on_error, None)
        while not self._lost:
            function, arguments, self._current = self._calls.get()
            self.messages.clear()
            try:
                answer = "result", function(*arguments)
            except BaseException as error:
                answer = "error", error
            self._current.put(answer)
            del function, arguments, answer
        self.lib.free_env()

    def _leave(self, why: str) -> None:
        self._lost = why
        self._calls.put((lambda: None, (), queue.SimpleQueue()))  # to wake it

    def _keep_message(self, _: object, text: bytes) -> int:
        self.messages.append(text.decode(errors="replace"))
        if text.endswith(b"\n"):
            for line in "".join(self.messages[self._told():]).splitlines():
                self._current.put(("line", line))
        return 1

    def _told(self) -> int:
        """The first message that belongs to the last line."""
        k = len(self.messages) - 1
        while k > 0 and not self.messages[k - 1].endswith("\n"):
            k -= 1
        return k

    def _stop_for_good(self, _: object) -> None:
        """The library is about to abort: what it said before tells why."""
        self._lost = "stopped (%s)" % " ".join("".join(self.messages[-2:]).split())
        self.lib.free_env()
        self._current.put(("error", SolverError("GLPK " + self._lost)))
        threading.Event().wait()


_library: List[Library] = []
_thread: List[Thread] = []


def library() -> Library:
    """The library, loaded when it is first needed. Raises SolverError if it is missing."""
    if not _library:
        _library.append(Library(LIBRARY))
    return _library[0]


def thread() -> Thread:
    """The thread that runs the library at present."""
    if not _thread or _thread[0].lost:
        _thread[:] = [Thread(library())]
    return _thread[0]
