from array import array

import fragments

fragments._c_closure_644(9, array("i", [1, 2, 5, 4, 0, 7]), 3)
