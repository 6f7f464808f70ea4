// A table that becomes a list of cards where there is no room for it.
import type { ReactNode } from "react";
import styles from "@patternfly/react-styles/css/components/Table/table";
import "@patternfly/react-styles/css/components/Table/table-grid.css";

interface SimpleTableProps {
    label: string;
    columns: string[];
    /** The first cell names its row. */
    rows: { key: string; cells: ReactNode[] }[];
}

export function SimpleTable({ label, columns, rows }: SimpleTableProps) {
    return (
        <table className={`${styles.table} pf-m-grid-md pf-m-compact`} role="grid" aria-label={label}>
            <thead className={styles.tableThead}>
                <tr className={styles.tableTr}>
                    {columns.map(column => <th key={column} className={styles.tableTh} scope="col">{column}</th>)}
                </tr>
            </thead>
            <tbody className={styles.tableTbody}>
                {rows.map(({ key, cells }) => (
                    <tr key={key} className={styles.tableTr}>
                        {cells.map((cell, at) => at === 0
                            ? <th key={at} className={styles.tableTh} scope="row" data-label={columns[at]}>{cell}</th>
                            : <td key={at} className={`${styles.tableTd} pf-m-break-word`} data-label={columns[at]}>{cell}</td>)}
                    </tr>
                ))}
            </tbody>
        </table>
    );
}
