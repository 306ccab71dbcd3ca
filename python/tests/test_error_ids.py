"""Ids and arguments of the runtime's own errors that no other test checks."""

import pytest
from conftest import EXECUTOR, LAZY
from kvbigdata import host

COLUMN = host.StringArray(["a", "b"])


def strategy(numbers):
    return numbers.table.get("PartitionMetadata").get("Strategy")


def closure(array):
    return array.get("ValueFuture").get("Promise").get("Closure")


def digraph(s, end):
    ends = s.call("table", host.StringArray([["a", end]]), "VariableNames", host.String("EndNodes"))
    names = s.call("table", host.StringArray(["a", "b"]), "VariableNames", host.String("Name"))
    return s.call("digraph", ends, names)


ROWS = [
    (
        "KALVEX:Containers:CountMismatch",
        ["2", "1"],
        lambda s, n: s.new("containers.Map", COLUMN, host.Cell([1.0])),
    ),
    (
        "KALVEX:Containers:NoKey",
        ["c"],
        lambda s, n: s.new("containers.Map", COLUMN, host.Cell([1.0, 2.0])).invoke("lookup", "c"),
    ),
    (
        "KALVEX:InputParser:ParamMissingValue",
        ["RequiresRandState"],
        lambda s, n: s.new("kalvex.bigdata.internal.PartitionedArrayOptions", "RequiresRandState"),
    ),
    (
        "KALVEX:array:OneVariable",
        ["2"],
        lambda s, n: s.call("subsrefTabularVar", ":", COLUMN, True, n.table),
    ),
    (
        "KALVEX:datastore:NotSupported",
        ["containers.Map"],
        lambda s, n: s.call(
            EXECUTOR + "PartitionedArrayExecutor.checkDatastoreSupportForDefault",
            s.new("containers.Map"),
        ),
    ),
    (
        "KALVEX:datastore:PartitionCount",
        ["NumPartitions", "2", "1"],
        lambda s, n: strategy(n).invoke("createPartition", 1.0, 2.0),
    ),
    (
        "KALVEX:datastore:PartitionCount",
        ["PartitionIndex", "2", "1"],
        lambda s, n: strategy(n).invoke("createPartition", 2.0, 1.0),
    ),
    (
        "KALVEX:array:NotInGraph",
        ["closure"],
        lambda s, n: s.call(
            LAZY + "LazyTaskGraph.createExecutionTasks",
            closure(n.x),
            host.ObjectArray(LAZY + "Closure", []),
            host.ObjectArray(EXECUTOR + "ExecutionTask", []),
            False,
            as_class=LAZY + "LazyTaskGraph",
        ),
    ),
    ("KALVEX:digraph:UnknownNode", ["c"], lambda s, n: digraph(s, "c")),
    ("KALVEX:table:UnequalHeights", ["2", "1"], lambda s, n: s.call("table", COLUMN, 1.0)),
    (
        "KALVEX:table:CountMismatch",
        ["2", "1"],
        lambda s, n: s.call("table", 1.0, "VariableNames", COLUMN),
    ),
]


@pytest.mark.parametrize(
    ("identifier", "arguments", "wrong_use"), ROWS, ids=[row[0] for row in ROWS]
)
def test_wrong_use_raises_the_id_with_its_arguments(numbers, identifier, arguments, wrong_use):
    with pytest.raises(host.Error) as raised:
        wrong_use(numbers.session, numbers)
    assert (raised.value.identifier, raised.value.arguments) == (identifier, arguments)
