"""Captures spread over a local Dask cluster of two worker processes give
what one process reads."""

import dask
import pandas as pd
import pytest
from distributed import Client, LocalCluster

import q9db
import q9db.dask
from conftest import VEHICLE_LOG


@pytest.fixture(scope="module")
def client():
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        with Client(cluster) as client:
            yield client


def test_files_and_byte_ranges_as_partitions(client, tmp_path, vehicle):
    second = tmp_path / "second.asc"
    with can_logger(second) as logger:
        for m in can_messages():
            logger.on_message_received(m)
    frame, reports = q9db.dask.read_logs([VEHICLE_LOG, second], vehicle, chunk_bytes=20_000, reports=True)
    assert frame.npartitions == 4  # vehicle.log in three ranges, the .asc whole
    result, reports = dask.compute(frame, reports)
    single = pd.concat([q9db.read_log(VEHICLE_LOG, vehicle), q9db.read_log(second, vehicle)])
    columns = ["frame", "signal", "value", "unit", "text"]
    assert result[columns].astype(str).reset_index(drop=True).equals(single[columns].astype(str).reset_index(drop=True))
    assert sum(r.frames for r in reports) == 1087 + 50 and all(r.complete for r in reports)
    workers = client.run(lambda: len(q9db.dask._databases))
    assert sorted(workers.values()) == [1, 1]  # each worker process loaded the description once


def can_logger(path):
    import can
    return can.Logger(str(path))


def can_messages():
    import can
    return list(can.LogReader(str(VEHICLE_LOG)))[:50]
