// simplify_code: rebuilds the program of each term as an expression tree, folds what is constant on
// the way, and writes the tree back as a program.
//
// A term that went through is either numeric, with the single atom op_folded, or all program, with
// a coefficient of 0.0. A program that isn't well-formed is found here and nowhere else. All of it
// is closure 379.

#include <algorithm>
#include <utility>

#include "algorithms.h"
#include "closure_frame.h"
#include "program_run.h"
#include "scratch.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// The expression tree of one term, in scratch regions of the x stack that serve all terms.
///
/// Nodes have numbers from 0 in the order of their creation, and never change. The children of node
/// k are child[childptr[k]] up to but not including child[childptr[k + 1]]. A rule that lets an
/// operand stand takes a number all the same: that number has no children, and isn't in the tree.
template <class S>
struct Tree
{
    I32Out<S> kind;
    F64Out<S> operand;
    I32Out<S> childptr;
    I32Out<S> child;
    I32Out<S> stack;
    int stack_n;
    int tnodes;

    static constexpr int32_t no_kind = -9999;

    void clear(int64_t atoms)
    {
        stack_n = 0;
        tnodes = 0;
        childptr[0] = 0;
        fill_n(kind, atoms, no_kind);
    }

    void push(int node) { stack[stack_n++] = node; }
    int pop() { return stack[--stack_n]; }

    bool is_constant(int node) const { return kind[node] == op_const; }
    bool is_constant(int node, double value) const
    {
        return is_constant(node) && operand[node] == value;
    }

    int new_number()
    {
        childptr[tnodes + 1] = childptr[tnodes];
        return tnodes++;
    }
    /// Without an operand: the slot keeps what it holds.
    int new_node(int32_t opcode)
    {
        const int node = new_number();
        kind[node] = opcode;
        return node;
    }
    int new_node(int32_t opcode, double value)
    {
        const int node = new_node(opcode);
        operand[node] = value;
        return node;
    }
    /// To the newest node.
    void add_child(int node) { child[childptr[tnodes]++] = node; }

    int constant(double value) { return new_node(op_const, value); }
    int same(int node)
    {
        new_number();
        return node;
    }
    int unary(int32_t opcode, int a)
    {
        const int node = new_node(opcode);
        add_child(a);
        return node;
    }
    int binary(int32_t opcode, double value, int l, int r)
    {
        const int node = new_node(opcode, value);
        add_child(l);
        add_child(r);
        return node;
    }

    int negated(int a) { return is_constant(a) ? constant(-operand[a]) : unary(op_neg, a); }
    int inverted(int a) { return is_constant(a) ? constant(1.0 / operand[a]) : unary(op_inv, a); }

    int added(int l, int r, double value)
    {
        if (is_constant(l) && is_constant(r)) return constant(operand[l] + operand[r]);
        if (is_constant(l, 0.0)) return same(r);
        if (is_constant(r, 0.0)) return same(l);
        return binary(op_add, value, l, r);
    }

    int multiplied(int l, int r, double value)
    {
        if (is_constant(l) && is_constant(r)) return constant(operand[l] * operand[r]);
        if (is_constant(l, 0.0) || is_constant(r, 0.0)) return constant(0.0);
        if (is_constant(r, 1.0)) return same(l);
        if (is_constant(l, 1.0)) return same(r);
        return binary(op_mul, value, l, r);
    }

    /// The sum of the top `n` nodes, 2 or more, which are taken off the stack: the constants among
    /// them come to the front and, from two on, fold to one. `list` is scratch of `n` entries.
    int summed(int n, const Scratch<int32_t>& list)
    {
        for (int k = 0; k < n; ++k) list[k] = pop();
        for (int f = 0, b = n - 1; f < b;) {
            if (is_constant(list[f]))
                ++f;
            else if (!is_constant(list[b]))
                --b;
            else
                std::swap(list[f++], list[b--]);
        }
        double sum = 0.0;
        int k = 0;
        for (; k < n && is_constant(list[k]); ++k) sum += operand[list[k]];
        if (k == n) return constant(sum);

        int first = 0;
        if (k >= 2) {
            first = k - 1;
            list[first] = constant(sum);
        }
        const int node = new_node(op_sum, n - first);
        for (int c = first; c < n; ++c) add_child(list[c]);
        return node;
    }

    bool push_sum(int32_t n, const Scratch<int32_t>& list)
    {
        if (n < 0 || n > stack_n) return false;
        // No writer sums a single value: there is no rule for it, and an empty node joins the
        // value.
        push(n == 0 ? constant(0.0) : n == 1 ? new_node(op_nop) : summed(n, list));
        return true;
    }

    /// Puts atom a of the program in the place of its operands on the stack. Returns false, with
    /// nothing changed, if its opcode is unknown or operands are missing.
    bool take_atom(const Operand<S>& source, int64_t a, const Scratch<int32_t>& list)
    {
        const int32_t opcode = source.code[a];
        switch (opcode) {
        case op_nop:
            return true;
        case op_param:
        case op_const:
            push(new_node(opcode, source.cconst[a]));
            return true;
        case op_neg:
        case op_inv: {
            if (stack_n < 1) return false;
            const int node = pop();
            push(opcode == op_neg ? negated(node) : inverted(node));
            return true;
        }
        case op_add:
        case op_mul: {
            if (stack_n < 2) return false;
            const int r = pop();
            const int l = pop();
            const double value = source.cconst[a];
            push(opcode == op_add ? added(l, r, value) : multiplied(l, r, value));
            return true;
        }
        case op_sum:
            return push_sum(truncate_to_i32(source.cconst[a]), list);
        default:
            return false;
        }
    }
};

/// Reverses the atoms of `r` from `begin` on.
template <class S>
void reverse_atoms(const Result<S>& r, int64_t begin)
{
    for (int64_t i = begin, j = r.codei - 1; i < j; ++i, --j) {
        const int32_t opcode = r.code[i];
        const double operand = r.cconst[i];
        r.code[i] = r.code[j];
        r.cconst[i] = r.cconst[j];
        r.code[j] = opcode;
        r.cconst[j] = operand;
    }
}

/// Writes the tree below the one node on the stack, and moves the number of term t to where it
/// belongs: a constant tree goes into it, and any other takes it up.
template <class S>
void emit(Tree<S>& tree, F64Out<S> numbers, int64_t t, Result<S>& target)
{
    const int root = tree.stack[0];
    if (tree.is_constant(root)) {
        numbers[t] += tree.operand[root];
        target.append_atom(op_folded, 0.0);
        return;
    }
    // Back to front: each node before its children, the last child first.
    const int64_t begin = target.codei;
    if (numbers[t] != 0.0) {
        target.append_opcode(op_add);
        target.append_atom(op_const, numbers[t]);
        numbers[t] = 0.0;
    }
    while (tree.stack_n > 0) {
        const int node = tree.pop();
        target.append_atom(tree.kind[node], tree.operand[node]);
        const int64_t end = tree.childptr[node + 1];
        for (int64_t k = tree.childptr[node]; k < end; ++k) tree.push(tree.child[k]);
    }
    reverse_atoms(target, begin);
}

/// Whether term t, which has the number `number`, is a constant times a parameter to which no rule
/// applies: it goes out as it came.
template <class S>
bool is_plain_product(const Operand<S>& e, int64_t t, double number)
{
    const int64_t a = e.codeptr[t];
    return e.codeptr[t + 1] - a == 3 && e.code[a] == op_const && e.code[a + 1] == op_param &&
           e.code[a + 2] == op_mul && e.cconst[a] != 0.0 && e.cconst[a] != 1.0 && number == 0.0;
}

/// Number of atoms of the longest of `nterm` programs.
template <class S>
int longest_program(I32<S> codeptr, int64_t nterm)
{
    int longest = 0;
    for (int64_t t = 0; t < nterm; ++t) longest = std::max(longest, codeptr[t + 1] - codeptr[t]);
    return longest;
}

} // namespace

/// Simplifies the programs of `nterm` terms and settles which side of each carries its number: a
/// program that folds to a constant goes into the term's `fixterm`, any other takes that up and
/// leaves 0.0. Program t is the atoms of `code` and `code_consts` from ptr[t] up to but not
/// including ptr[t + 1]. The new programs go to `target_code` and `target_const` from `dstpos` on,
/// entry t + 1 of `target_ptr` gets the end of program t; entry 0 is the host's. The tree regions
/// at `tnode_kind_base`, `tnode_const_base`, `childptr_base`, `child_base` and `stack_base` are
/// scratch: for a term of A atoms, S of them op_sum, A + S nodes and children, and A stack entries.
///
/// Stops at a malformed term, of which nothing is written: `errpos`, which comes in negative, is
/// then the position of its last bad atom or, if all are good, the number of its nodes. If it
/// doesn't come in negative, nothing is done. Returns (`dstpos`, `errpos`, `stack_n`, `tnodes`),
/// the last two as the last term left them. Linear in the number of atoms.
CLOSURE(379, results(int, int, int, int),
        (int child_base, int childptr_base, I32 code, int code_base, F64 code_consts,
         int code_consts_base, int dstpos, int errpos, F64Out fixterm, int fixterm_base, int nterm,
         I32 ptr, int ptr_base, int stack_base, int stack_n, I32Out target_code,
         int target_code_base, F64Out target_const, int target_const_base, I32Out target_ptr,
         int target_ptr_base, int tnode_const_base, int tnode_kind_base, int tnodes, F64Out xf64,
         I32Out xi32))
{
    if (errpos >= 0) return {dstpos, errpos, stack_n, tnodes};
    Operand<Stride> source;
    source.codeptr = ptr.from(ptr_base);
    source.code = code.from(code_base);
    source.cconst = code_consts.from(code_consts_base);
    Result<Stride> target;
    target.codeptr = target_ptr.from(target_ptr_base);
    target.code = target_code.from(target_code_base);
    target.cconst = target_const.from(target_const_base);
    target.codei = dstpos;
    const auto numbers = fixterm.from(fixterm_base);
    const Scratch<int32_t> list(longest_program(source.codeptr, nterm));
    Tree<Stride> tree{xi32.from(tnode_kind_base),
                      xf64.from(tnode_const_base),
                      xi32.from(childptr_base),
                      xi32.from(child_base),
                      xi32.from(stack_base),
                      stack_n,
                      tnodes};
    const auto is_plain = [&](int64_t t) {
        return t < nterm && is_plain_product(source, t, numbers[t]);
    };
    bool plain = is_plain(0);
    for (int64_t t = 0; t < nterm; ++t) {
        // What such a term leaves in the tree's regions, the next one of its kind overwrites.
        const bool next_plain = is_plain(t + 1);
        if (std::exchange(plain, next_plain) && next_plain) {
            target.append_program(source, t);
            target.close_coded_term();
            continue;
        }
        const int begin = source.codeptr[t];
        const int end = source.codeptr[t + 1];
        tree.clear(int64_t{end} - begin);
        for (int a = begin; a < end; ++a)
            if (!tree.take_atom(source, a, list)) errpos = a;
        if (errpos < 0 && tree.stack_n != 1) errpos = tree.tnodes;
        if (errpos >= 0) break;
        emit(tree, numbers, t, target);
        target.close_coded_term();
    }
    return {target.codei, errpos, tree.stack_n, tree.tnodes};
}

} // namespace fragments
